// A cleanup on a real scanned tree with a private home trash: the safety check stopping the whole
// queue, the saved scan shrinking by what moved, a moved item the scan does not know, and Undo
// when an original place has been taken since.
#include "cleanup/cleanup.h"

#include <gtest/gtest.h>

#include "store/scan_store.h"
#include "support/scan_trees.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

class CleanupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (isProtectedPath(scan, rule)) GTEST_SKIP() << "the temporary folder is protected";
    tree.file("scan/a", 65536);
    tree.file("scan/b", 65536);
    tree.file("scan/dir/c", 131072);
    ScanResult result = test::scanTree(scan);
    ASSERT_TRUE(result.root);
    ASSERT_TRUE(ScanStore::writeRootNode(result.root.get(), file));
    store = ScanStore::open(file);
    ASSERT_TRUE(store);
    before = rootSize();
    options.homeTrash = tree.path("trash");
  }
  uint64_t rootSize() { return ScanStore::open(file)->rootNode()->size(); }
  uint64_t sizeAt(const std::string& path) { return store->nodeAtPath(path)->size(); }
  bool exists(const std::string& relative) {
    return access(tree.path(relative).c_str(), F_OK) == 0;
  }

  test::TempTree tree;
  std::string scan = tree.folder("scan");
  std::string file = tree.path("scan.sqlite");
  SafetyRule rule{tree.path("home"), {}};
  TrashOptions options;
  std::shared_ptr<ScanStore> store;
  uint64_t before = 0;
};

TEST_F(CleanupTest, AnUnsafeItemStopsTheWholeQueueBeforeAnythingMoves) {
  const TrashOutcome outcome =
      moveItemsToTrash({scan + "/a", scan, scan + "/b"}, scan, rule, options);
  EXPECT_EQ(outcome.status, TrashOutcome::Status::UnsafeItem);
  EXPECT_EQ(outcome.unsafePath, scan);
  EXPECT_TRUE(outcome.mapping.empty());
  EXPECT_TRUE(exists("scan/a") && exists("scan/b"));
  EXPECT_FALSE(exists("trash/files/a"));
}

TEST_F(CleanupTest, AScanMadeThroughALinkToItsFolderStillMovesItsItems) {
  const std::string link = tree.symlink(scan, "link");
  const TrashOutcome outcome = moveItemsToTrash({link + "/b"}, link, rule, options);
  ASSERT_EQ(outcome.status, TrashOutcome::Status::Moved)
      << outcome.error.value_or(Error{}).description << outcome.unsafePath;
  EXPECT_EQ(outcome.mapping, (TrashMapping{{link + "/b", tree.path("trash/files/b")}}));
  EXPECT_FALSE(exists("scan/b"));
}

TEST_F(CleanupTest, MovedItemsShrinkTheSavedScanAndUndoRestoresAllButAnOccupiedPlace) {
  const uint64_t sizeA = sizeAt(scan + "/a");
  const uint64_t moved = sizeA + sizeAt(scan + "/dir");
  const TrashOutcome outcome = moveItemsToTrash({scan + "/a", scan + "/dir"}, scan, rule, options);
  ASSERT_EQ(outcome.status, TrashOutcome::Status::Moved)
      << outcome.error.value_or(Error{}).description << outcome.unsafePath;
  ASSERT_EQ(outcome.mapping.size(), 2u);
  EXPECT_FALSE(exists("scan/a") || exists("scan/dir"));
  const MarkOutcome marked = markMovedItems(*store, outcome.mapping);
  ASSERT_FALSE(marked.error) << marked.error.value_or(Error{}).description;
  EXPECT_EQ(marked.markedNodes.size(), 2u);
  EXPECT_EQ(rootSize(), before - moved);
  EXPECT_FALSE(store->nodeAtPath(scan + "/dir/c"));

  // Someone put a new "a" where the old one was: it stays, everything else comes back.
  tree.file("scan/a", 10);
  TrashRestoreOutcome undo = restoreItems(outcome.mapping, options);
  EXPECT_EQ(undo.failedNames, std::vector<std::string>{"a"});
  ASSERT_EQ(undo.remaining.size(), 1u);
  EXPECT_EQ(undo.remaining[0].first, scan + "/a");
  EXPECT_TRUE(exists("scan/dir/c"));
  ASSERT_TRUE(unmarkRestoredItems(*store, marked.markedNodes, undo.restoredPaths));
  EXPECT_EQ(rootSize(), before - sizeA);

  // A second Undo retries only that pair.
  unlink(tree.path("scan/a").c_str());
  undo = restoreItems(undo.remaining, options);
  EXPECT_TRUE(undo.failedNames.empty());
  EXPECT_EQ(undo.restoredPaths, std::vector<std::string>{scan + "/a"});
  ASSERT_TRUE(unmarkRestoredItems(*store, marked.markedNodes, undo.restoredPaths));
  EXPECT_EQ(rootSize(), before);
  EXPECT_EQ(test::readFile(tree.path("scan/a")).size(), 65536u);
}

TEST_F(CleanupTest, AMovedItemMissingFromTheSavedScanMarksNothing) {
  tree.file("scan/new", 4096);
  const TrashOutcome outcome = moveItemsToTrash({scan + "/b", scan + "/new"}, scan, rule, options);
  ASSERT_EQ(outcome.status, TrashOutcome::Status::Moved);
  const MarkOutcome marked = markMovedItems(*store, outcome.mapping);
  ASSERT_TRUE(marked.error);
  EXPECT_EQ(*marked.error, (Error{kSQLiteErrorDomain, 1,
                                  "One or more files could not be found in the saved scan."}));
  EXPECT_TRUE(marked.markedNodes.empty());
  EXPECT_EQ(rootSize(), before);
  EXPECT_TRUE(store->nodeAtPath(scan + "/b"));
}

}  // namespace
}  // namespace tw
