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
  // Sizes of the root, docs and cache rows, rows present, logical size and present items.
  std::string state() {
    test::Sql sql(file);
    auto size = [&](const char* path) {
      return std::to_string(*sql.integer(std::string("SELECT size FROM items WHERE path='") + path +
                                         "' AND is_directory=1 AND is_aggregate=0"));
    };
    return "data=" + size("/data") + " docs=" + size("/data/docs") +
           " cache=" + size("/data/cache") +
           " logical=" + std::to_string(*sql.integer("SELECT logical_size FROM scan_metadata")) +
           " items=" + std::to_string(*sql.integer("SELECT source_item_count FROM scan_metadata")) +
           " a_b=" + std::to_string(*sql.integer("SELECT is_deleted FROM items WHERE name='a_b'"));
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
       "data=400 docs=600 cache=300 logical=400 items=7 a_b=1"},
      {"the same file twice subtracts it once",
       "",
       {{{"/data/docs/a_b"}, true}, {{"/data/docs/a_b"}, true}},
       "data=900 docs=500 cache=300 logical=900 items=10 a_b=1"},
      {"restoring a folder brings back what was deleted below it earlier",
       "",
       {{{"/data/docs/a_b"}, true}, {{"/data/docs"}, true}, {{"/data/docs"}, false}},
       "data=900 docs=500 cache=300 logical=900 items=11 a_b=0"},
      {"a parent smaller than its child stops at 0",
       "UPDATE items SET size=100 WHERE name='cache'",
       {{{"/data/cache/big.bin"}, true}},
       "data=700 docs=600 cache=0 logical=700 items=10 a_b=0"},
      {"delete then restore returns the earlier sizes",
       "",
       {{{"/data/cache", "/data/docs/a_b"}, true}, {{"/data/cache", "/data/docs/a_b"}, false}},
       "data=1000 docs=600 cache=300 logical=1000 items=11 a_b=0"},
      {"restoring an item that is present changes nothing",
       "",
       {{{"/data/docs/a_b"}, false}},
       "data=1000 docs=600 cache=300 logical=1000 items=11 a_b=0"},
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
