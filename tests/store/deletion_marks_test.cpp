// Deletion marks on a saved scan: rows flagged with their subtrees, every ancestor moved by the
// item's size once (never below 0), the metadata following, and a failing call changing nothing.
#include <gtest/gtest.h>

#include <map>

#include "store/scan_store.h"
#include "store/store_test_support.h"

namespace tw {
namespace {

class DeletionMarksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), file));
  }
  void open() {
    store = ScanStore::open(file);
    ASSERT_TRUE(store);
    // Taken before any call: a deleted item is no longer found by path, but Undo holds its node.
    for (const char* path : {"/data/docs", "/data/docs/a_b", "/data/cache", "/data/cache/big.bin"})
      nodes[path] = store->nodeAtPath(path);
  }
  bool mark(const std::vector<std::string>& paths, bool deleted, Error* error = nullptr) {
    std::vector<ScanNode*> list;
    for (const std::string& path : paths) list.push_back(nodes.at(path).get());
    return store->setNodes(list, deleted, error);
  }
  // "data docs cache logical_size source_item_count a_b.is_deleted" (rows 1, 2, 6 and 4).
  std::string state() {
    return *test::Sql(file).text(
        "SELECT (SELECT size FROM items WHERE id=1)||' '||(SELECT size FROM items WHERE id=2)||' "
        "'||"
        "(SELECT size FROM items WHERE id=6)||' '||logical_size||' '||source_item_count||' '||"
        "(SELECT is_deleted FROM items WHERE id=4) FROM scan_metadata");
  }
  test::TempTree tree;
  std::string file = tree.path("scan.sqlite");
  std::shared_ptr<ScanStore> store;
  std::map<std::string, ScanNodeRef> nodes;
};

struct Step {
  std::vector<std::string> paths;
  bool deleted;
};
struct MarkCase {
  const char* name;
  const char* prepare;  // SQL run on the file before it is opened
  std::vector<Step> steps;
  const char* expected;
};

TEST_F(DeletionMarksTest, MarksMoveEveryAncestorOnceAndTheMetadataFollows) {
  const std::vector<MarkCase> cases = {
      {"a folder and its own file subtract the folder once",
       "",
       {{{"/data/docs/a_b", "/data/docs"}, true}},
       "400 600 300 400 7 1"},
      {"the same file twice subtracts it once",
       "",
       {{{"/data/docs/a_b"}, true}, {{"/data/docs/a_b"}, true}},
       "900 500 300 900 10 1"},
      {"restoring a folder brings back what was deleted below it earlier",
       "",
       {{{"/data/docs/a_b"}, true}, {{"/data/docs"}, true}, {{"/data/docs"}, false}},
       "900 500 300 900 11 0"},
      {"a parent smaller than its child stops at 0",
       "UPDATE items SET size=100 WHERE name='cache'",
       {{{"/data/cache/big.bin"}, true}},
       "700 600 0 700 10 0"},
      {"restoring an item that is present changes nothing",
       "",
       {{{"/data/docs/a_b"}, false}},
       "1000 600 300 1000 11 0"},
  };
  for (const MarkCase& c : cases) {
    SCOPED_TRACE(c.name);
    store.reset();
    nodes.clear();
    SetUp();
    if (*c.prepare) test::Sql(file).exec(c.prepare);
    open();
    for (const Step& step : c.steps) {
      Error error;
      EXPECT_TRUE(mark(step.paths, step.deleted, &error)) << error.description;
    }
    EXPECT_EQ(state(), c.expected);
  }
}

TEST_F(DeletionMarksTest, AMissingRowFailsTheWholeCallAndChangesNothing) {
  open();
  EXPECT_TRUE(store->setNodes({}, true));
  ScanNodeRef ghost = ScanNode::makeRoot("/data/ghost", false);
  ghost->setDatabaseNodeID(999);
  const std::string before = state();
  Error error;
  EXPECT_FALSE(store->setNodes({nodes.at("/data/docs/a_b").get(), ghost.get()}, true, &error));
  EXPECT_EQ(error.domain, kSQLiteErrorDomain);
  EXPECT_EQ(state(), before);
  // The store stays usable: the next call works.
  EXPECT_TRUE(mark({"/data/docs/a_b"}, true));
  EXPECT_FALSE(store->nodeAtPath("/data/docs/a_b"));
  EXPECT_EQ(store->rootNode()->size(), 900u);
}

}  // namespace
}  // namespace tw
