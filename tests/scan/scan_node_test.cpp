// The scan node tree: names and paths, the child order, grouping of small children, sorting deep
// trees, and lazily loaded children.
#include "scan/scan_node.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/scan_trees.h"

namespace tw {
namespace {

using test::addFiles;
using test::childNames;
using test::Names;

ScanNode* addGroup(ScanNode* parent, std::string_view name, uint64_t size, bool aggregate = true) {
  ScanNode* group = test::addNode(parent, name, aggregate, size);
  (aggregate ? group->setAggregate(true) : group->setVirtualNode(true));
  return group;
}

// A sorted root at `path` of total `size` holding the files of `listing` ("name:size …").
ScanNodeRef sorted(std::string_view path, uint64_t size, std::string_view listing,
                   bool volumeRoot = false) {
  ScanNodeRef root = ScanNode::makeRoot(path, true);
  root->setVolumeRoot(volumeRoot);
  addFiles(root.get(), listing);
  root->setSize(size);
  EXPECT_TRUE(root->sortRecursively());
  return root;
}

TEST(ScanNode, NamesAndPathsComeFromTheRootPathSkippingSyntheticGroups) {
  ScanNodeRef slash = ScanNode::makeRoot("/", true);
  EXPECT_EQ(slash->name(), "/");
  EXPECT_EQ(slash->path(), "/");
  EXPECT_EQ(test::addFolder(slash.get(), "usr", 0)->path(), "/usr");
  EXPECT_EQ(ScanNode::makeRoot("/home/u/", true)->name(), "u");
  EXPECT_FALSE(slash->hasModificationDate());
  slash->setModificationDate(0);  // the first second of 1970 is a date
  EXPECT_TRUE(slash->hasModificationDate());

  ScanNodeRef handle;
  {
    ScanNodeRef root = ScanNode::makeRoot("/data", true);
    root->setName("Data Disk");  // a volume name does not change the root's own path
    ScanNode* docs = test::addFolder(root.get(), "docs", 0);
    ScanNode* group = addGroup(docs, kSmallerObjectsName, 0);
    EXPECT_EQ(group->path(), "/data/docs");
    handle = test::addFile(group, "bad\xff.txt", 0)->ref();
  }
  // The handle keeps the whole tree alive.
  EXPECT_EQ(handle->path(), "/data/docs/bad\xff.txt");
  EXPECT_EQ(handle->parent()->parent()->name(), "docs");
}

TEST(ScanNode, ChildOrderIsOrdinaryAggregateVirtualThenLargestThenNaturalNameWithGroupsBelow) {
  ScanNodeRef root = ScanNode::makeRoot("/r", true);
  addFiles(root.get(), "f10:5 f2:5 big:100 F1:5");
  addGroup(root.get(), kHiddenSpaceName, 1000, false);
  addGroup(root.get(), kSmallerObjectsName, 500);
  root->setSize(0);  // no grouping: only the order
  ASSERT_TRUE(root->sortRecursively());
  EXPECT_EQ(childNames(root.get()),
            (Names{"big", "F1", "f2", "f10", std::string(kSmallerObjectsName),
                   std::string(kHiddenSpaceName)}));

  // Only more than eight children, and only a group of two or more non-empty ones.
  EXPECT_EQ(sorted("/a", 1007, "a:1000 b:1 c:1 d:1 e:1 f:1 g:1 h:1")->children().size(), 8u);
  // Nine children but only one at or below 5,000 (0.5 % of 1,000,000): no group of one.
  ScanNodeRef nine = sorted("/b", 1000000,
                            "a:100000 b:100000 c:100000 d:100000 e:100000 f:100000 g:100000 "
                            "h:100000 small:5000");
  EXPECT_EQ(nine->children().size(), 9u);
  for (ScanNode* c : nine->children()) EXPECT_FALSE(c->isAggregate());
  // Threshold 3: only the empty files are small, and a group of nothing is not made.
  ScanNodeRef empty = sorted("/z", 700, "a:100 b:100 c:100 d:100 e:100 f:100 g:100 z1:0 z2:0");
  EXPECT_EQ(childNames(empty.get()).back(), "z2");
  for (ScanNode* c : empty->children()) EXPECT_EQ(c->parent(), empty.get());

  // t4 (5001) is above the 5,000 threshold and stays; t1 (exactly 5,000), t2, t3 are grouped.
  root = sorted("/r", 1000000,
                "a:200000 b:200000 c:200000 d:200000 e:180000 t1:5000 t2:4000 t3:1 t4:5001");
  ASSERT_EQ(root->children().size(), 7u);
  ScanNode* group = root->children().back();
  EXPECT_EQ(group->name(), kSmallerObjectsName);
  EXPECT_TRUE(group->isAggregate() && group->isDirectory());
  EXPECT_EQ(group->size(), 9001u);
  EXPECT_EQ(group->parent(), root.get());
  EXPECT_EQ(childNames(group), (Names{"t1", "t2", "t3"}));
  for (ScanNode* c : group->children()) EXPECT_EQ(c->parent(), group);
  EXPECT_EQ(group->children()[1]->path(), "/r/t2");
}

TEST(ScanNode, VolumeRootGroupsAtTheSmallerThresholdKeepingSystemFoldersAndClones) {
  ScanNodeRef root = ScanNode::makeRoot("/", true);
  root->setVolumeRoot(true);
  addFiles(root.get(),
           "huge:10000000 Library:10 Users:10 System:10 Applications:10 private:10 clone:10 x:10 "
           "y:10");
  test::child(root.get(), "clone")->setAPFSClone(true);
  root->setSize(10'000'090);  // threshold 0.0005 × size = 5,000
  ASSERT_TRUE(root->sortRecursively());
  EXPECT_EQ(root->children().size(), 8u);
  EXPECT_EQ(childNames(root->children().back()), (Names{"x", "y"}));

  const std::string big = "a:1000000 b:1000000 c:1000000 d:1000000 e:1000000 f:1000000 g:1000000 ";
  // 0.05 % = 3,501: the 1000-byte files are grouped; 0.5 % of a folder = 35,400: 40 KB files stay.
  EXPECT_EQ(sorted("/", 7'002'000, big + "m1:1000 m2:1000", true)->children().size(), 8u);
  EXPECT_EQ(sorted("/f", 7'080'000, big + "m1:40000 m2:40000")->children().size(), 9u);
}

TEST(ScanNode, ExistingGroupIsRegroupedAndEmptyGroupsAreDropped) {
  ScanNodeRef root = ScanNode::makeRoot("/r", true);
  addFiles(root.get(), "a:100000 b:100000 c:100000 d:100000 e:100000 f:100000 g:100000 s:10");
  addGroup(root.get(), kSmallerObjectsName, 20);
  root->setSize(700030);
  ASSERT_TRUE(root->sortRecursively());
  ASSERT_EQ(root->children().size(), 8u);
  // The new group holds the walk's group and "s".
  EXPECT_EQ(childNames(root->children().back()), (Names{"s", std::string(kSmallerObjectsName)}));

  ScanNodeRef other = ScanNode::makeRoot("/o", true);
  ScanNode* empty = addGroup(other.get(), kSmallerObjectsName, 0);
  addFiles(other.get(), "keep:0");
  ASSERT_TRUE(other->sortRecursively());
  EXPECT_EQ(childNames(other.get()), (Names{"keep"}));
  std::vector<ScanNode*> list = {empty, other->children()[0]};
  ScanNode::dropEmptyAggregates(list);
  EXPECT_EQ(list.size(), 1u);

  // The cancel check stops a sort; a deep tree sorts without exhausting the stack.
  int asked = 0;
  EXPECT_FALSE(root->sortRecursively([&] { return ++asked > 1; }));
  ScanNode* node = root.get();
  for (int i = 0; i < 200000; ++i) node = test::addFolder(node, "d", 0);
  EXPECT_TRUE(root->sortRecursively([] { return false; }));
}

TEST(ScanNode, LazyLoaderRunsOnceEvenForConcurrentReadersAndSetChildrenDropsIt) {
  ScanNodeRef root = ScanNode::makeRoot("/r", true);
  int runs = 0;
  root->setLazyChildrenLoader([&](ScanNode& node) {
    ++runs;
    return std::vector<ScanNode*>{node.createNode("old", false)};
  });
  EXPECT_FALSE(root->isChildrenLoaded());
  root->addChild(root->createNode("new", false));  // forces the load first
  EXPECT_EQ(childNames(root.get()), (Names{"old", "new"}));
  EXPECT_EQ(root->children()[0]->parent(), root.get());
  EXPECT_EQ(root->children()[0]->path(), "/r/old");
  EXPECT_EQ(runs, 1);
  root->setLazyChildrenLoader([](ScanNode&) -> std::vector<ScanNode*> {
    ADD_FAILURE();
    return {};
  });
  root->setChildren(std::vector<ScanNode*>{root->createNode("only", false), nullptr});
  EXPECT_EQ(childNames(root.get()), (Names{"only"}));

  // A loader finding nothing leaves the node empty and loaded.
  ScanNodeRef other = ScanNode::makeRoot("/o", true);
  other->setLazyChildrenLoader([](ScanNode&) { return std::vector<ScanNode*>{}; });
  EXPECT_TRUE(other->children().empty());
  EXPECT_TRUE(other->isChildrenLoaded());

  std::atomic<int> concurrentRuns{0};
  ScanNodeRef shared = ScanNode::makeRoot("/s", true);
  shared->setLazyChildrenLoader([&](ScanNode& node) {
    ++concurrentRuns;
    std::vector<ScanNode*> kids;
    for (int i = 0; i < 100; ++i) kids.push_back(node.createNode("c" + std::to_string(i), false));
    return kids;
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] { EXPECT_EQ(shared->children().size(), 100u); });
  for (auto& t : threads) t.join();
  EXPECT_EQ(concurrentRuns.load(), 1);
}

}  // namespace
}  // namespace tw
