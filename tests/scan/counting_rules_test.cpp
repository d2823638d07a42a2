// The scan engine's counting rules: the node tree (names, paths, the child order, grouping of
// small children, lazily loaded children); a walk on real trees (sizes, hard links, what is left
// out, the fingerprint and the snapshot, progress, the background scan and its cancellation); and
// the whole-disk rules, run on a temporary folder that plays "/" of a system disk.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstring>

#include "scan/directory_scanner.h"
#include "scan/issue_recorder.h"
#include "scan/scan_node.h"
#include "support/main_queue.h"
#include "support/scan_trees.h"
#include "support/temp_tree.h"
#include "support/test_volume_layout.h"

namespace tw {
namespace {

using test::addFiles;
using test::allocatedSize;
using test::child;
using test::childNames;
using test::find;
using test::Names;
using test::scanTree;
using test::TempTree;
using test::TestVolumeLayout;

ScanNode* addGroup(ScanNode* parent, std::string_view name, uint64_t size, bool aggregate = true) {
  ScanNode* group = test::addNode(parent, name, aggregate, size);
  (aggregate ? group->setAggregate(true) : group->setVirtualNode(true));
  return group;
}

// The child names of `node`, a group's children in brackets after it; a child whose parent is
// not `node` is marked.
std::string shape(ScanNode* node) {
  std::string out;
  for (ScanNode* c : node->children()) {
    out += (out.empty() ? "" : " ") + std::string(c->name()) + (c->parent() == node ? "" : "!");
    if (c->isAggregate() && !c->children().empty()) out += "[" + shape(c) + "]";
  }
  return out;
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
  EXPECT_EQ(shape(root.get()), "big F1 f2 f10 smaller objects\u2026 hidden space\u2026");
  // Children at or below 0.5 % of a folder (0.05 % on a volume root) are grouped, only when there
  // are more than eight, never a group of one or of empty files; on a volume root the system
  // folders and clones stay. (root, volume root, size, files, order after sorting)
  const std::string big = "a:1000000 b:1000000 c:1000000 d:1000000 e:1000000 f:1000000 g:1000000 ";
  const std::string smaller(kSmallerObjectsName);
  const std::tuple<const char*, bool, uint64_t, std::string, std::string> cases[] = {
      {"/a", false, 1007, "a:1000 b:1 c:1 d:1 e:1 f:1 g:1 h:1", "a b c d e f g h"},
      {"/b", false, 1000000,
       "a:100000 b:100000 c:100000 d:100000 e:100000 f:100000 g:100000 h:100000 small:5000",
       "a b c d e f g h small"},
      {"/z", false, 700, "a:100 b:100 c:100 d:100 e:100 f:100 g:100 z1:0 z2:0",
       "a b c d e f g z1 z2"},
      // t4 (5001) is above the 5,000 threshold; t1 (exactly 5,000), t2 and t3 are grouped.
      {"/r", false, 1000000,
       "a:200000 b:200000 c:200000 d:200000 e:180000 t1:5000 t2:4000 t3:1 t4:5001",
       "a b c d e t4 " + smaller + "[t1 t2 t3]"},
      // Threshold 5,000 on a volume root; "clone" is made a clone below.
      {"/", true, 10'000'090,
       "huge:10000000 Library:10 Users:10 System:10 Applications:10 private:10 clone:10 x:10 y:10",
       "huge Applications clone Library private System Users " + smaller + "[x y]"},
      // 3,501 on a volume root groups the 1000-byte files; 35,400 in a folder keeps 40 KB ones.
      {"/", true, 7'002'000, big + "m1:1000 m2:1000", "a b c d e f g " + smaller + "[m1 m2]"},
      {"/f", false, 7'080'000, big + "m1:40000 m2:40000", "a b c d e f g m1 m2"},
  };
  for (const auto& [path, volumeRoot, size, files, expected] : cases) {
    root = ScanNode::makeRoot(path, true);
    root->setVolumeRoot(volumeRoot);
    addFiles(root.get(), files);
    if (ScanNode* clone = test::child(root.get(), "clone")) clone->setAPFSClone(true);
    root->setSize(size);
    ASSERT_TRUE(root->sortRecursively());
    EXPECT_EQ(shape(root.get()), expected) << files;
    if (path == std::string("/r")) {
      ScanNode* group = root->children().back();
      EXPECT_TRUE(group->isAggregate() && group->isDirectory());
      EXPECT_EQ(group->size(), 9001u);
      EXPECT_EQ(group->children()[1]->path(), "/r/t2");
    }
  }
}

TEST(ScanNode, ExistingGroupIsRegroupedAndEmptyGroupsAreDropped) {
  ScanNodeRef root = ScanNode::makeRoot("/r", true);
  addFiles(root.get(), "a:100000 b:100000 c:100000 d:100000 e:100000 f:100000 g:100000 s:10");
  addGroup(root.get(), kSmallerObjectsName, 20);
  root->setSize(700030);
  ASSERT_TRUE(root->sortRecursively());
  // The new group holds the walk's group and "s".
  EXPECT_EQ(shape(root.get()), "a b c d e f g smaller objects\u2026[s smaller objects\u2026]");
  ScanNodeRef other = ScanNode::makeRoot("/o", true);
  addGroup(other.get(), kSmallerObjectsName, 0);
  addFiles(other.get(), "keep:0");
  ASSERT_TRUE(other->sortRecursively());
  EXPECT_EQ(childNames(other.get()), (Names{"keep"}));
  // The cancel check stops a sort; a deep tree sorts without exhausting the stack.
  int asked = 0;
  EXPECT_FALSE(root->sortRecursively([&] { return ++asked > 1; }));
  ScanNode* node = root.get();
  for (int i = 0; i < 200000; ++i) node = test::addFolder(node, "d", 0);
  EXPECT_TRUE(root->sortRecursively([] { return false; }));
}

TEST(ScanNode, LazyLoaderRunsOnceAddChildForcesItAndSetChildrenDropsIt) {
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
}

TEST(DirectoryScanner, FolderSizesAreTheAllocatedBytesOfEverythingBelowWithSmallOnesGrouped) {
  TempTree t;
  const uint64_t a = allocatedSize(t.file("a.bin", 10000));
  const uint64_t b = allocatedSize(t.file("sub/b.bin", 70000));
  const uint64_t c = allocatedSize(t.file("sub/deeper/c.bin", 1));
  t.file("sub/empty.txt", 0);
  t.folder("nothing");
  for (int i = 0; i < 8; ++i) t.file("many/big" + std::to_string(i), 400000);
  const uint64_t tiny = allocatedSize(t.file("many/tiny1", 10));
  t.file("many/tiny2", 10);
  ScanResult r = scanTree(t.root());
  ASSERT_TRUE(r.root);
  ScanNode* root = r.root.get();
  EXPECT_FALSE(root->isVolumeRoot());
  EXPECT_EQ(root->path(), t.root());
  EXPECT_EQ(find(root, "sub")->size(), b + c);
  EXPECT_EQ(find(root, "sub/deeper/c.bin")->size(), c);
  EXPECT_EQ(find(root, "nothing")->size(), 0u);
  ScanNode* many = find(root, "many");
  EXPECT_EQ(root->size(), a + b + c + many->size());
  // Largest first, then by name.
  EXPECT_EQ(test::childNames(root), (test::Names{"many", "sub", "a.bin", "nothing"}));
  EXPECT_EQ(r.statistics.itemsVisited, 18u);
  EXPECT_TRUE(root->scanIssues().empty());
  EXPECT_GT(root->scanDate(), 1.6e9);
  // Below half a percent of a folder, children are grouped; the group keeps them.
  ASSERT_EQ(many->children().size(), 9u);
  ScanNode* group = many->children().back();
  EXPECT_EQ(group->name(), kSmallerObjectsName);
  EXPECT_TRUE(group->isAggregate());
  EXPECT_EQ(group->path(), t.path("many"));
  EXPECT_EQ(group->size(), tiny * 2);
  EXPECT_EQ(find(group, "tiny2")->path(), t.path("many/tiny2"));
  // A file with three names counts once, under the first name met; the others get no node.
  t.file("links/one/big.bin", 1 << 20);
  t.hardLink("links/one/big.bin", "links/two/again.bin");
  t.hardLink("links/one/big.bin", "links/one/twin.bin");
  r = scanTree(t.path("links"));
  EXPECT_EQ(r.root->size(), allocatedSize(t.path("links/one/big.bin")));
  EXPECT_EQ((find(r.root.get(), "one/big.bin") != nullptr) +
                (find(r.root.get(), "one/twin.bin") != nullptr) +
                (find(r.root.get(), "two/again.bin") != nullptr),
            1);
}

TEST(DirectoryScanner, ExclusionsAndPackagesAreLeftOutOfScanAndSnapshotAlike) {
  TempTree t;
  t.file("keep/a.txt", 5000);
  t.file("keep/x/c.LOG", 5000);  // two folders deep, upper-case extension
  t.file("keep/Café.tmp", 5000);
  t.file("skipme/inner/big.bin", 300000);
  t.file("home/cache/junk.bin", 300000);
  t.file("Tool.app/Contents/MacOS/tool", 200000);
  t.file("Build.xcarchive/Products/thing", 100000);
  ScanSettings settings;
  settings.excludedPaths = {t.path("skipme") + "/", "~/cache"};
  settings.excludedFilePatterns = {"*.log", "  cafe*  ", "", "keep/nothing*"};
  setenv("HOME", t.path("home").c_str(), 1);
  ScanResult r = scanTree(t.root(), nullptr, settings);
  ASSERT_TRUE(r.root);
  for (const char* gone : {"skipme", "home/cache", "keep/x/c.LOG", "keep/Café.tmp", "Tool.app"})
    EXPECT_EQ(find(r.root.get(), gone), nullptr) << gone;
  for (const char* kept : {"home", "keep/a.txt", "Build.xcarchive/Products/thing"})
    EXPECT_NE(find(r.root.get(), kept), nullptr) << kept;
  EXPECT_EQ(r.root->size(), allocatedSize(t.path("keep/a.txt")) +
                                allocatedSize(t.path("Build.xcarchive/Products/thing")));
  // keep, keep/a.txt, keep/x, home, Tool.app (a package counts, its contents do not), and the
  // archive (no package on Linux) with its two items; the snapshot that checks a saved scan's
  // freshness leaves out the same.
  EXPECT_EQ(r.root->sourceItemCount(), 8);
  DirectoryScanner::Options options;
  options.settings = [settings] { return settings; };
  SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(t.root(), options);
  EXPECT_EQ(snapshot.itemCount, 8);
  EXPECT_EQ(snapshot.fingerprint, r.root->sourceFingerprint());
  // A pattern may also match the path relative to the root; packages may be kept.
  settings = {};
  settings.excludedFilePatterns = {"keep/x"};
  settings.skipPackages = false;
  r = scanTree(t.root(), nullptr, settings);
  EXPECT_EQ(find(r.root.get(), "keep/x"), nullptr);
  EXPECT_NE(find(r.root.get(), "keep/a.txt"), nullptr);
  ScanNode* app = find(r.root.get(), "Tool.app");
  ASSERT_NE(app, nullptr);
  EXPECT_TRUE(app->isPackage() && app->isDirectory());
  EXPECT_NE(find(app, "Contents/MacOS/tool"), nullptr);
}

// The fingerprint of one item computed the long way, from its description.
uint64_t itemFingerprint(const std::string& relative, bool folder, uint64_t size, double mtime) {
  uint64_t h = 0x14650FB0739D0383ULL;
  auto feed = [&h](unsigned char c) { h = (h ^ c) * 0x100000001B3ULL; };
  for (unsigned char c : relative) feed(c);
  feed(folder ? 1 : 0);
  for (int i = 0; i < 8; ++i) feed(static_cast<unsigned char>(size >> (8 * i)));
  uint64_t bits;
  std::memcpy(&bits, &mtime, 8);
  for (int i = 0; i < 8; ++i) feed(static_cast<unsigned char>(bits >> (8 * i)));
  return h;
}

TEST(DirectoryScanner, FingerprintSumsItemsWithTheFixedStartValueThroughALinkedRootToo) {
  TempTree t;
  t.file("d/f.txt", 123);
  t.file("Thing.app/inside", 10);
  t.hardLink("d/f.txt", "d/g.txt");
  t.symlink("d", "link");
  t.setModificationTime("d/f.txt", 1700000000.25);
  t.setModificationTime("d", 1600000000.0);
  t.setModificationTime("Thing.app", 1500000000.0);
  // A folder's logical size is whatever the file system reports for it.
  struct stat d {};
  struct stat app {};
  stat(t.path("d").c_str(), &d);
  stat(t.path("Thing.app").c_str(), &app);
  const uint64_t files = itemFingerprint("/f.txt", false, 123, 1700000000.25) +
                         itemFingerprint("/g.txt", false, 123, 1700000000.25);
  const uint64_t expected =
      itemFingerprint("/d", true, static_cast<uint64_t>(d.st_size), 1600000000.0) +
      itemFingerprint("/d/f.txt", false, 123, 1700000000.25) +
      itemFingerprint("/d/g.txt", false, 123, 1700000000.25) +
      itemFingerprint("/Thing.app", true, static_cast<uint64_t>(app.st_size), 1500000000.0);
  // The root itself, and a root that is a symbolic link to a folder, which is walked as that
  // folder: scan and snapshot agree on both.
  for (const auto& [root, fingerprint, count] :
       {std::tuple{t.root(), expected, 4}, std::tuple{t.path("link"), files, 2}}) {
    ScanResult r = scanTree(root);
    ASSERT_TRUE(r.root);
    EXPECT_EQ(test::issuesText(r.root->scanIssues()), "");
    EXPECT_EQ(r.root->sourceFingerprint(), fingerprint) << root;
    EXPECT_EQ(r.root->sourceItemCount(), count) << root;
    SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(root, {});
    EXPECT_EQ(snapshot.fingerprint, fingerprint) << root;
    EXPECT_EQ(snapshot.itemCount, count) << root;
    EXPECT_FALSE(snapshot.error.has_value()) << snapshot.error->description;
  }
  EXPECT_EQ(scanTree(t.path("link")).root->size(), allocatedSize(t.path("d/f.txt")));
  t.setModificationTime("d/f.txt", 1700000001.0);
  EXPECT_NE(DirectoryScanner::computeSourceSnapshot(t.root(), {}).fingerprint, expected);
}

TEST(DirectoryScanner, BackgroundScanReportsProgressIgnoresASecondStartAndCancelsWithoutATree) {
  TempTree t;
  for (int i = 0; i < 1100; ++i) t.file("f/" + std::to_string(i), i % 3 ? 100 : 0);
  test::MainQueue main;  // plays the GUI thread
  std::atomic<DirectoryScanner*> cancelOnProgress{nullptr};
  DirectoryScanner::Options options;
  options.callbackExecutor = [&cancelOnProgress, post = main.executor()](auto f) {
    if (DirectoryScanner* scanner = cancelOnProgress.load()) scanner->cancel();  // on the walk
    post(std::move(f));
  };
  DirectoryScanner scanner(options);
  int completions = 0;
  ScanNodeRef delivered;
  bool cancelledFlag = false;
  auto completion = [&](ScanNodeRef root, std::optional<Error> error, bool cancelled) {
    ++completions;
    delivered = root;
    cancelledFlag = cancelled && !error;
  };
  std::vector<std::tuple<uint64_t, uint64_t, double>> seen;
  auto progress = [&](uint64_t bytes, uint64_t items, double f) {
    seen.emplace_back(bytes, items, f);
  };
  // Runs what the walk posts until its completion has run on "the GUI thread".
  auto finish = [&] {
    const int before = completions;
    ASSERT_TRUE(main.runUntil([&] {
      if (completions > before) return true;
      EXPECT_TRUE(scanner.isScanning());  // until the completion runs
      return false;
    }));
  };
  const uint64_t estimate = 1'000'000;
  scanner.scanURL(t.root(), estimate, progress, completion);
  scanner.scanURL(t.root(), 0, nullptr, completion);  // ignored: one is running
  finish();
  EXPECT_FALSE(scanner.isScanning());
  EXPECT_EQ(completions, 1);
  ASSERT_TRUE(delivered);
  EXPECT_FALSE(cancelledFlag);
  // Every 512 items on the curve, then fixed steps for saving, sorting and finishing.
  ASSERT_EQ(seen.size(), 5u);
  const double steps[] = {0.92, 0.97, 0.995};  // saving, sorting, finishing
  for (int i = 0; i < 5; ++i) {
    const auto [bytes, items, fraction] = seen[i];
    const double x = static_cast<double>(bytes) / estimate;
    const double expected = i < 2 ? std::min(0.915, 0.92 * (1 - std::exp(-2 * x))) : steps[i - 2];
    EXPECT_EQ(items, i < 2 ? 512u * (i + 1) : 1101u);
    EXPECT_DOUBLE_EQ(fraction, expected);
  }
  EXPECT_EQ(std::get<0>(seen[4]), delivered->size());
  EXPECT_EQ(walkProgressFraction(10 * estimate, estimate), 0.915);
  seen.clear();
  scanner.scanURL(t.root(), 0, progress, completion);
  finish();
  ASSERT_EQ(seen.size(), 3u);  // without an estimate: no fraction, and no steps after 0.92
  for (auto& s : seen) EXPECT_EQ(std::get<2>(s), -1.0);
  cancelOnProgress = &scanner;
  scanner.scanURL(t.root(), 0, progress, completion);
  finish();
  EXPECT_EQ(delivered, nullptr);
  EXPECT_TRUE(cancelledFlag);
  EXPECT_TRUE(scanner.isCancellationRequested());
}

constexpr uint64_t kMB = 1000 * 1000;

class SystemDisk : public ::testing::Test {
 protected:
  ScanResult scan() { return scanTree(t.root(), layout); }
  uint64_t size(const char* relative) { return allocatedSize(t.path(relative)); }
  TempTree t;
  std::shared_ptr<TestVolumeLayout> layout = std::make_shared<TestVolumeLayout>(t.root());
};

TEST_F(SystemDisk, SmallFilesAreGroupedPerFolderAndHiddenSpaceFillsTheUsedSpace) {
  layout->protectedPaths.clear();
  for (const char* name : {"a.txt", "b.txt", "c.txt"}) t.file(std::string("Users/u/") + name, 1000);
  t.file("Users/u/movie.mov", 10 * kMB);
  t.file("Users/u/.DS_Store", 6000);
  t.file("Users/u/empty", 0);
  layout->volume.totalCapacity = 500 * kMB;
  layout->volume.availableCapacity = 100 * kMB;
  layout->volume.availableForImportantUsage = 3;  // raised to the available capacity
  ScanResult r = scan();
  ASSERT_TRUE(r.root);
  ScanNode* u = find(r.root.get(), "Users/u");
  ASSERT_NE(u, nullptr);
  // ".DS_Store" files keep their own node; the group has no children and the folder's path.
  EXPECT_EQ(shape(u), "movie.mov .DS_Store smaller objects\u2026");
  ScanNode* group = child(u, kSmallerObjectsName);
  EXPECT_EQ(group->size(), 3 * size("Users/u/a.txt"));
  EXPECT_TRUE(group->children().empty());
  EXPECT_EQ(group->path(), t.path("Users/u"));
  EXPECT_EQ(u->size(), group->size() + size("Users/u/movie.mov") + size("Users/u/.DS_Store"));
  EXPECT_EQ(r.statistics.itemsVisited, 8u);  // Users, u and six files, the empty one included
  EXPECT_TRUE(r.root->isVolumeRoot());
  EXPECT_EQ(r.root->name(), "Test Disk");
  EXPECT_EQ(r.root->path(), t.root());
  EXPECT_EQ(std::pair(r.root->volumeFreeSpace(), r.root->volumeAvailableSpace()),
            std::pair(100 * kMB, 100 * kMB));
  EXPECT_EQ(std::pair(r.root->sourceFingerprint(), r.root->sourceItemCount()), std::pair(0ul, 0l));
  EXPECT_EQ(shape(r.root.get()), "Users hidden space\u2026");
  ScanNode* hidden = r.root->children().back();
  EXPECT_TRUE(hidden->isVirtualNode() && !hidden->isDirectory());
  EXPECT_EQ(hidden->size(), 400 * kMB - find(r.root.get(), "Users")->size());
  EXPECT_EQ(r.root->size(), 400 * kMB);
  // More counted than used: no hidden space, and the root still shows the used space.
  layout->volume.totalCapacity = 2 * kMB;
  layout->volume.availableCapacity = 1 * kMB;
  r = scan();
  EXPECT_EQ(child(r.root.get(), kHiddenSpaceName), nullptr);
  EXPECT_EQ(r.root->size(), 1 * kMB);
}

TEST_F(SystemDisk, CloneFamilyIsChargedOnceOnADiskPreferablyInsideApplicationsNeverGrouped) {
  layout->protectedPaths.clear();
  // (path, size, clone family, reference count)
  const std::tuple<const char*, uint64_t, uint64_t, uint32_t> files[] = {
      {"Applications/Tool/tool.bin", 6 * kMB, 11, 2},
      {"Downloads/copy.bin", 6 * kMB, 11, 2},
      {"Work/a/first.bin", 6 * kMB, 22, 2},
      {"Work/b/second.bin", 6 * kMB, 22, 2},
      {"Users/a.bin", 1000, 9, 2},
      {"Users/b.bin", 1000, 9, 2},
      {"Work/small.bin", 1000, 6, 1}};  // one reference without the shares-all flag: no clone
  for (const auto& [path, bytes, family, references] : files)
    layout->makeClone(t.file(path, bytes), family, references);
  ScanResult r = scan();
  ScanNode* inApps = find(r.root.get(), "Applications/Tool/tool.bin");
  ScanNode* outside = find(r.root.get(), "Downloads/copy.bin");
  ASSERT_TRUE(inApps && outside);
  EXPECT_TRUE(inApps->isAPFSClone() && !inApps->isCloneAllocationElsewhere());
  EXPECT_EQ(inApps->size(), size("Applications/Tool/tool.bin"));
  EXPECT_TRUE(outside->isAPFSClone() && outside->isCloneAllocationElsewhere());
  EXPECT_EQ(outside->size(), 0u);
  EXPECT_EQ(outside->cloneSharedSize(), size("Downloads/copy.bin"));
  // Outside the applications, exactly one member of a family carries the size.
  ScanNode* first = find(r.root.get(), "Work/a/first.bin");
  ScanNode* second = find(r.root.get(), "Work/b/second.bin");
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->size() + second->size(), size("Work/a/first.bin"));
  EXPECT_NE(first->isCloneAllocationElsewhere(), second->isCloneAllocationElsewhere());
  EXPECT_EQ(first->cloneSharedSize(), size("Work/a/first.bin"));
  EXPECT_EQ(second->cloneSharedSize(), size("Work/b/second.bin"));
  // Small clones stay out of "smaller objects…": one charged, one elsewhere with size 0.
  ScanNode* users = find(r.root.get(), "Users");
  EXPECT_EQ(test::childNames(users).size(), 2u);
  EXPECT_EQ(child(users, kSmallerObjectsName), nullptr);
  EXPECT_EQ(users->size(), size("Users/a.bin"));
  // A folder scan keeps every clone at full size.
  r = scanTree(t.path("Work"), layout);
  ASSERT_FALSE(r.root->isVolumeRoot());
  for (const char* path : {"a/first.bin", "b/second.bin"}) {
    ScanNode* n = find(r.root.get(), path);
    ASSERT_NE(n, nullptr);
    EXPECT_TRUE(n->isAPFSClone() && !n->isCloneAllocationElsewhere());
    EXPECT_EQ(n->size(), size("Work/a/first.bin"));
    EXPECT_EQ(n->cloneSharedSize(), n->size());
  }
  EXPECT_FALSE(child(r.root.get(), "small.bin")->isAPFSClone());
}

TEST_F(SystemDisk,
       DataVolumeAndOtherDisksLeftOutSystemVolumesMeasuredEmptyProtectedPlacesReported) {
  t.file("System/Volumes/Data/Users/u/twice.bin", 8 * kMB);  // reached through its firmlinks
  t.file("Volumes/External/film.mov", 8 * kMB);
  const uint64_t swap = allocatedSize(t.file("System/Volumes/VM/swapfile0", 6 * kMB));
  const uint64_t preboot = allocatedSize(t.file("System/Volumes/Preboot/boot.efi", 6 * kMB));
  const uint64_t kept = allocatedSize(t.file("System/Library/kept.bin", 8 * kMB));
  t.folder("Library/Caches");
  t.file("private/var/db.bin", 8 * kMB);
  layout->systemVolumes = {
      {t.path("System/Volumes/VM"), swap + 50 * kMB},
      {t.path("System/Volumes/Preboot"), 1},            // below what was counted: unchanged
      {t.path("System/Volumes/Update"), 30 * kMB},      // not walked: made under its folder
      {t.path("System/Volumes/Data"), 900 * kMB},       // the firmlinked data volume: ignored
      {t.path("System/Volumes/Data/home"), 900 * kMB},  // below it: ignored
      {t.path("Volumes/Stick"), 900 * kMB},             // not a system volume
      {t.path("System/Volumes/Empty"), 0},              // nothing used: skipped
  };
  ScanResult r = scan();
  EXPECT_EQ(find(r.root.get(), "System/Volumes/Data"), nullptr);
  EXPECT_EQ(find(r.root.get(), "Volumes"), nullptr);
  EXPECT_EQ(find(r.root.get(), "System/Volumes/Empty"), nullptr);
  ScanNode* vm = find(r.root.get(), "System/Volumes/VM");
  ASSERT_NE(vm, nullptr);
  EXPECT_EQ(vm->size(), swap + 50 * kMB);
  ScanNode* other = child(vm, kOtherSystemDataName);
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(other->isAggregate() && !other->isDirectory());
  EXPECT_EQ(other->size(), 50 * kMB);
  EXPECT_EQ(other->path(), t.path("System/Volumes/VM"));
  ScanNode* update = find(r.root.get(), "System/Volumes/Update");
  ASSERT_NE(update, nullptr);
  EXPECT_TRUE(update->isDirectory());
  EXPECT_EQ(update->size(), 30 * kMB);
  EXPECT_EQ(update->path(), t.path("System/Volumes/Update"));
  EXPECT_EQ(find(r.root.get(), "System/Volumes/Preboot")->size(), preboot);
  // Raised sizes reach every ancestor.
  EXPECT_EQ(find(r.root.get(), "System")->size(), swap + 50 * kMB + 30 * kMB + preboot + kept);
  // "/Library" measures empty, "/private" does not.
  EXPECT_EQ(r.root->scanIssues(),
            (std::vector<ScanIssue>{{t.path("Library"), kProtectedLocationMessage}}));
  // The same folder scanned as an ordinary folder keeps everything, and has no protected places.
  layout->systemDisk = false;
  r = scan();
  EXPECT_NE(find(r.root.get(), "Volumes"), nullptr);
  EXPECT_NE(find(r.root.get(), "System/Volumes/Data"), nullptr);
  EXPECT_TRUE(r.root->scanIssues().empty());
}

TEST(IssueRecorder, KeepsFiveHundredDistinctIssuesInOrder) {
  IssueRecorder recorder("/root");
  const Error denied = posixError(EACCES);
  recorder.record("/root/a", &denied);
  recorder.record("/root/a", &denied);  // the same text twice is recorded once
  recorder.record("", nullptr);         // the root, with the fallback message
  const Error blank{kScanErrorDomain, 1, ""};
  recorder.record("/root/b", &blank);
  for (int i = 0; recorder.size() < 500; ++i)
    recorder.record("/root/f" + std::to_string(i), &denied);
  recorder.record("/root/the-501st", &denied);
  std::vector<ScanIssue> issues = recorder.take();
  ASSERT_EQ(issues.size(), 500u);
  EXPECT_EQ(issues[0], (ScanIssue{"/root/a", "Permission denied"}));
  EXPECT_EQ(issues[1], (ScanIssue{"/root", "The item could not be read."}));
  EXPECT_EQ(issues[2], (ScanIssue{"/root/b", "The item could not be read."}));
  EXPECT_EQ(issues.back().path, "/root/f496");
}

}  // namespace
}  // namespace tw
