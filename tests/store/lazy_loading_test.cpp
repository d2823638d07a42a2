// Nodes read from a saved scan: children load on first use, once, into the parent's tree; nodes
// keep their store open; the lock order holds under concurrent use; raw names survive.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <future>
#include <thread>

#include "scan/directory_scanner.h"
#include "store/scan_store.h"
#include "store/store_test_support.h"

namespace tw {
namespace {

using test::Names;
using test::namesOf;

// How many descriptors of this process are open on `path`.
int openDescriptorsOn(const std::string& file) {
  char resolved[PATH_MAX];
  const std::string path = realpath(file.c_str(), resolved) ? resolved : file;
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (dirent* entry = readdir(dir)) {
    char target[4096];
    const std::string link = std::string("/proc/self/fd/") + entry->d_name;
    const ssize_t n = readlink(link.c_str(), target, sizeof target);
    count += n > 0 && std::string(target, n) == path;
  }
  closedir(dir);
  return count;
}

// Twenty folders of fifty subfolders, each holding one file.
class LazyLoadingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScanNodeRef tree = ScanNode::makeRoot("/r", true);
    for (int f = 0; f < 20; ++f) {
      ScanNode* folder = test::addNode(tree.get(), "folder" + std::to_string(f), true, 1000 + f);
      for (int i = 0; i < 50; ++i)
        test::addNode(test::addNode(folder, "sub" + std::to_string(i), true, 10), "leaf.txt", false,
                      10);
    }
    ASSERT_TRUE(ScanStore::writeRootNode(tree.get(), file));
    store = ScanStore::open(file);
    ASSERT_TRUE(store);
  }

  test::TempTree tree;
  std::string file = tree.path("scan.sqlite");
  std::shared_ptr<ScanStore> store;
};

TEST_F(LazyLoadingTest, ChildrenLoadOnceIntoTheParentsTreeAndQueryAnswersStayOutOfIt) {
  ScanNodeRef root = store->rootNode();
  EXPECT_FALSE(root->isChildrenLoaded());
  auto first = root->children();
  ASSERT_EQ(first.size(), 20u);
  EXPECT_TRUE(root->isChildrenLoaded());
  ScanNode* folder = first[0];
  EXPECT_EQ(folder->name(), "folder19");
  EXPECT_EQ(folder->parent(), root.get());
  EXPECT_EQ(folder->treeRoot(), root.get());
  EXPECT_EQ(folder->path(), "/r/folder19");
  EXPECT_EQ(folder->scanStore(), store);
  EXPECT_FALSE(folder->isChildrenLoaded());

  // Query answers are trees of their own; their folders load their own children.
  const std::size_t before = root->arena().bytesReserved();
  for (int i = 0; i < 20; ++i) ASSERT_EQ(store->allNodesUnderNode(root.get()).size(), 2021u);
  EXPECT_EQ(root->arena().bytesReserved(), before);
  ScanNodeRef answer = store->nodeAtPath("/r/folder3");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->children().size(), 50u);
  EXPECT_EQ(answer->children()[0]->parent(), answer.get());

  // A second call answers from memory: the table is gone, the children are not.
  test::Sql(file).exec("ALTER TABLE items RENAME TO gone");
  auto second = root->children();
  EXPECT_EQ(second.data(), first.data());
  EXPECT_EQ(second.size(), 20u);
  EXPECT_TRUE(folder->children().empty());
  EXPECT_TRUE(store->lastReadError());
}

TEST_F(LazyLoadingTest, StoreClosesWhenTheLastNodeHoldingItGoesAway) {
  std::weak_ptr<ScanStore> weak = store;
  ScanNodeRef root = store->rootNode();
  ScanNodeRef leaf = root->children()[3]->children()[0]->children()[0]->ref();
  EXPECT_EQ(leaf->name(), "leaf.txt");
  std::vector<ScanNodeRef> found = store->largestFilesUnderNode(root.get(), 5);
  ASSERT_EQ(found.size(), 5u);
  store.reset();
  root.reset();
  EXPECT_FALSE(weak.expired());
  EXPECT_EQ(openDescriptorsOn(file), 1);
  leaf.reset();
  EXPECT_FALSE(weak.expired());  // the query's answer holds it too
  EXPECT_EQ(found[0]->scanStore(), weak.lock());
  found.clear();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(openDescriptorsOn(file), 0);
}

TEST_F(LazyLoadingTest, ConcurrentLoadsAgreeAndAStreamCallbackMayLoadChildren) {
  ScanNodeRef root = store->rootNode();
  auto folders = root->children();
  std::vector<std::thread> threads;
  std::atomic<int> leaves{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (ScanNode* folder : folders)
        for (ScanNode* sub : folder->children()) leaves += static_cast<int>(sub->children().size());
      leaves += static_cast<int>(store->largestFilesUnderNode(root.get(), 3).size());
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(leaves.load(), 4 * (1000 + 3));

  // Thread B takes a folder's lock and then waits for the store; the stream's callback on this
  // thread asks the same folder for its children. Holding the store's lock during the callback
  // would deadlock the two.
  ScanNodeRef other = ScanStore::open(file)->rootNode();
  ScanNode* folder = other->children()[0];
  auto done = std::async(std::launch::async, [&] {
    int seen = 0;
    std::future<std::size_t> load;
    const bool completed = other->scanStore()->enumerateNodesUnderNode(
        other.get(), [&](const ScanNodeRef&, std::optional<Error>&) {
          if (++seen == 1) {
            load = std::async(std::launch::async, [&] { return folder->children().size(); });
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
          }
          if (seen == 2 && (folder->children().size() != 50 || load.get() != 50)) return false;
          for (ScanNode* sub : folder->children()) sub->children();
          return true;
        });
    return completed && seen == 2021;
  });
  ASSERT_EQ(done.wait_for(std::chrono::seconds(20)), std::future_status::ready)
      << "the stream and a children load deadlocked";
  EXPECT_TRUE(done.get());
}

TEST(NonUTF8NameTest, RawNamesSurviveScanWriteOpenAndLookup) {
  test::TempTree tree;
  const std::string badFolder = "caf\xe9", badFile = "bad\xff\xfename.bin";
  tree.file(badFolder + "/" + badFile, 5000);
  tree.file(badFolder + "/plain.txt", 100);
  ScanResult result = DirectoryScanner({}).scanNow(tree.root(), 0, nullptr);
  ASSERT_TRUE(result.root);
  const std::string file = tree.path("scan.sqlite");
  ASSERT_TRUE(ScanStore::writeRootNode(result.root.get(), file));
  auto store = ScanStore::open(file);
  ASSERT_TRUE(store);
  const std::string filePath = tree.root() + "/" + badFolder + "/" + badFile;
  ScanNodeRef node = store->nodeAtPath(filePath);
  ASSERT_TRUE(node);
  EXPECT_EQ(node->name(), badFile);
  EXPECT_EQ(node->path(), filePath);
  ScanNodeRef folder = store->nodeAtPath(tree.root() + "/" + badFolder);
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->name(), badFolder);
  EXPECT_EQ(test::childNames(folder.get()), (Names{badFile, "plain.txt"}));
  EXPECT_EQ(namesOf(store->filesUnderNode(folder.get(), "\xff\xfe", 5)), (Names{badFile}));
  EXPECT_EQ(test::Sql(file).integer("SELECT COUNT(*) FROM items WHERE typeof(name)<>'text' OR "
                                    "typeof(path)<>'text'"),
            0);
}

}  // namespace
}  // namespace tw
