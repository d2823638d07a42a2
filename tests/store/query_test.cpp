// Each query of a saved scan: what it returns, in which order, and what it leaves out.
#include <gtest/gtest.h>

#include <ctime>
#include <map>

#include "store/scan_store.h"
#include "store/store_test_support.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

using test::child;
using test::Names;
using test::namesOf;

class QueryTest : public ::testing::Test {
 protected:
  void SetUp() override { openTree(test::makeSampleTree()); }

  void openTree(const ScanNodeRef& tree) {
    root.reset();
    store.reset();
    ASSERT_TRUE(ScanStore::writeRootNode(tree.get(), file));
    Error error;
    store = ScanStore::open(file, &error);
    ASSERT_TRUE(store) << error.description;
    root = store->rootNode();
    ASSERT_TRUE(root);
  }

  test::TempTree tree;
  std::string file = tree.path("scan.sqlite");
  std::shared_ptr<ScanStore> store;
  ScanNodeRef root;
};

TEST_F(QueryTest, RootCarriesTheScanFiguresAndAtMost500Issues) {
  EXPECT_EQ(root->name(), "data");
  EXPECT_EQ(root->path(), "/data");
  EXPECT_EQ(root->parent(), nullptr);
  EXPECT_EQ(root->size(), 1000u);
  EXPECT_TRUE(root->isDirectory());
  EXPECT_EQ(root->databaseNodeID(), 1);
  EXPECT_EQ(root->scanStore(), store);
  EXPECT_EQ(root->scanDate(), 1700000000.0);
  EXPECT_EQ(root->sourceFingerprint(), 0xfedcba9876543210ull);
  EXPECT_EQ(root->sourceItemCount(), 11);
  EXPECT_EQ(root->scanIssues(), (std::vector<ScanIssue>{{"/data/locked", "Permission denied"}}));
  EXPECT_FALSE(store->lastReadError());

  ScanNodeRef tree = test::makeSampleTree();
  std::vector<ScanIssue> issues;
  for (int i = 0; i < 600; ++i) issues.push_back({"/data/" + std::to_string(i), ""});
  tree->setScanIssues(issues);
  openTree(tree);
  ASSERT_EQ(root->scanIssues().size(), 500u);
  EXPECT_EQ(root->scanIssues()[499].path, "/data/499");
  EXPECT_EQ(root->scanIssues()[0].message, "Unable to read this item.");
}

TEST_F(QueryTest, ChildrenComeInChildOrderWithPlainCaseInsensitiveTieBreak) {
  EXPECT_EQ(namesOf(store->childrenOfNode(*root)),
            (Names{"docs", "cache", "smaller objects\u2026", "hidden space\u2026"}));
  ScanNodeRef tree = ScanNode::makeRoot("/t", true);
  for (const char* name : {"b", "A", "c10", "c9", "C2"}) test::addNode(tree.get(), name, false, 5);
  test::addNode(tree.get(), "big", false, 9);
  openTree(tree);
  // Natural order would put C2 and c9 before c10; the stored order compares plain text.
  EXPECT_EQ(namesOf(store->childrenOfNode(*root)), (Names{"big", "A", "b", "c10", "C2", "c9"}));
}

TEST_F(QueryTest, NodeAtPathFindsTheStandardizedPath) {
  ScanNodeRef node = store->nodeAtPath("/data//docs/./a_b");
  ASSERT_TRUE(node);
  EXPECT_EQ(node->name(), "a_b");
  EXPECT_EQ(node->path(), "/data/docs/a_b");
  EXPECT_EQ(node->size(), 100u);
  EXPECT_EQ(node->parent(), nullptr);
  EXPECT_EQ(node->databaseNodeID(), 4);
  EXPECT_FALSE(store->nodeAtPath("/data/none"));
  EXPECT_FALSE(store->nodeAtPath(""));
  EXPECT_FALSE(store->lastReadError());
}

TEST_F(QueryTest, AllNodesListShallowBeforeDeepAndFilesLeaveOutFoldersSyntheticAndEmptyOnes) {
  ScanNode* docs = child(root.get(), "docs");
  ASSERT_TRUE(docs);
  EXPECT_EQ(namesOf(store->allNodesUnderNode(docs)),
            (Names{"docs", "a_b", "notes.txt", "Annual REPORT.pdf"}));
  EXPECT_EQ(store->allNodesUnderNode(root.get()).size(), 11u);
  EXPECT_EQ(namesOf(store->allFilesUnderNode(root.get())),
            (Names{"Annual REPORT.pdf", "big.bin", "a_b", "notes.txt", "tiny.c", "Tiny.h"}));
  EXPECT_EQ(namesOf(store->largestFilesUnderNode(root.get(), 2)),
            (Names{"Annual REPORT.pdf", "big.bin"}));
  EXPECT_EQ(namesOf(store->largestFilesUnderNode(child(root.get(), "cache"), 10)),
            (Names{"big.bin"}));
  EXPECT_TRUE(store->largestFilesUnderNode(root.get(), 0).empty());
  EXPECT_TRUE(store->allFilesUnderNode(nullptr).empty());
}

TEST_F(QueryTest, NameSearchIsSubstringWithoutWildcardsAndWholeNameWithThem) {
  ScanNodeRef tree = test::makeSampleTree();
  ScanNode* docs = tree->children()[0];
  test::addNode(docs, "axb", false, 50);
  test::addNode(docs, "xa_by", false, 50);
  test::addNode(docs, "report.pdf.txt", false, 50);
  test::addNode(docs, "100%", false, 50);
  openTree(tree);
  auto search = [&](std::string_view text) {
    return namesOf(store->filesUnderNode(root.get(), text, 100));
  };
  EXPECT_EQ(search("report"), (Names{"Annual REPORT.pdf", "report.pdf.txt"}));
  EXPECT_EQ(search(" \treport\n"), search("report"));
  EXPECT_EQ(search("*.pdf"), (Names{"Annual REPORT.pdf"}));
  EXPECT_EQ(search("a_b"), (Names{"a_b"}));
  EXPECT_EQ(search("t?ny.*"), (Names{"tiny.c", "Tiny.h"}));
  EXPECT_EQ(search("100%"), (Names{"100%"}));
  EXPECT_EQ(search("100"), (Names{"100%"}));
  EXPECT_TRUE(search("   ").empty());
  EXPECT_EQ(namesOf(store->filesUnderNode(root.get(), "*", 2)),
            (Names{"Annual REPORT.pdf", "big.bin"}));
}

TEST_F(QueryTest, CleanupCandidatesAreDSStoreFilesAndLargeOldItems) {
  const double now = static_cast<double>(time(nullptr));
  const double day = 86400;
  ScanNodeRef tree = ScanNode::makeRoot("/Users/u", true);
  auto add = [&](const char* path, bool directory, uint64_t size, double date) {
    test::addPath(tree.get(), path, directory, size)->setModificationDate(date);
  };
  add("Desktop/.DS_Store", false, 2048, now);
  add("Library/Caches/nine.bin", false, 9'000'000, now - 30 * day);
  add("Library/Caches/recent.bin", false, 50'000'000, now - 3 * day);
  add("Library/Caches/old.bin", false, 20'000'000, now - 30 * day);
  add("Library/Caches/folder", true, 15'000'000, now - 30 * day);
  add("Downloads/old.iso", false, 11'000'000, now - 10 * day);
  add("Documents/big.bin", false, 90'000'000, now - 90 * day);
  openTree(tree);
  EXPECT_EQ(namesOf(store->cleanupCandidatesUnderNode(root.get(), 10)),
            (Names{"old.bin", "folder", "old.iso", ".DS_Store"}));
  EXPECT_EQ(namesOf(store->cleanupCandidatesUnderNode(root.get(), 1)), (Names{"old.bin"}));
  EXPECT_TRUE(store->cleanupCandidatesUnderNode(root.get(), 0).empty());
  EXPECT_TRUE(store->cleanupCandidatesUnderNode(nullptr, 10).empty());
}

TEST_F(QueryTest, ExtensionSummaryCountsFilesPerLowerCasedExtension) {
  ScanNodeRef tree = test::makeSampleTree();
  test::addNode(tree->children()[0], "SCAN.PDF", false, 50);
  openTree(tree);
  Error error;
  auto summary = store->fileExtensionSummaryUnderNode(root.get(), &error);
  ASSERT_TRUE(summary) << error.description;
  std::map<std::string, std::pair<uint64_t, uint64_t>> byExtension;
  for (const ExtensionSummary& line : *summary)
    byExtension[line.extension] = {line.bytes, line.count};
  const std::map<std::string, std::pair<uint64_t, uint64_t>> expected = {
      {"pdf", {450, 2}}, {"", {100, 1}}, {"txt", {100, 1}},
      {"bin", {300, 1}}, {"c", {30, 1}}, {"h", {30, 1}}};
  EXPECT_EQ(byExtension, expected);
}

TEST_F(QueryTest, FilesByExtensionMatchOrExcludeLowerCasedLists) {
  auto files = [&](std::vector<std::string> matching, std::vector<std::string> excluding,
                   int64_t limit) {
    Error error;
    auto nodes = store->filesUnderNode(root.get(), matching, excluding, limit, &error);
    EXPECT_FALSE(store->lastReadError());
    return namesOf(nodes);
  };
  EXPECT_EQ(files({"PDF", "txt"}, {"pdf"}, 10), (Names{"Annual REPORT.pdf", "notes.txt"}));
  EXPECT_EQ(files({}, {"PDF", ""}, 10), (Names{"big.bin", "notes.txt", "tiny.c", "Tiny.h"}));
  EXPECT_EQ(files({}, {}, 10).size(), 6u);
  EXPECT_EQ(files({}, {}, 1), (Names{"Annual REPORT.pdf"}));
  EXPECT_TRUE(files({"pdf"}, {}, 0).empty());
}

TEST_F(QueryTest, DeletedRowsHideTheirWholeSubtree) {
  {
    test::Sql sql(file);
    sql.exec("UPDATE items SET is_deleted=1 WHERE name='docs'");
  }
  EXPECT_EQ(namesOf(store->childrenOfNode(*root)),
            (Names{"cache", "smaller objects\u2026", "hidden space\u2026"}));
  EXPECT_EQ(namesOf(store->allFilesUnderNode(root.get())), (Names{"big.bin", "tiny.c", "Tiny.h"}));
  EXPECT_TRUE(store->filesUnderNode(root.get(), "report", 10).empty());
  EXPECT_EQ(store->allNodesUnderNode(root.get()).size(), 7u);
  auto summary = store->fileExtensionSummaryUnderNode(root.get());
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->size(), 3u);
  int streamed = 0;
  EXPECT_TRUE(store->enumerateNodesUnderNode(
      root.get(), [&](const ScanNodeRef&, std::optional<Error>&) { return ++streamed, true; }));
  EXPECT_EQ(streamed, 7);
  {
    test::Sql sql(file);
    sql.exec("UPDATE items SET is_deleted=1 WHERE id=1");
  }
  EXPECT_FALSE(store->rootNode());
  EXPECT_FALSE(store->lastReadError());
}

TEST_F(QueryTest, EnumerationFollowsWriteOrderAndStopsWhenAsked) {
  std::vector<int64_t> ids;
  Error error;
  EXPECT_TRUE(store->enumerateNodesUnderNode(
      root.get(),
      [&](const ScanNodeRef& node, std::optional<Error>&) {
        ids.push_back(node->databaseNodeID());
        return true;
      },
      &error));
  EXPECT_EQ(ids, (std::vector<int64_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));

  int calls = 0;
  EXPECT_FALSE(store->enumerateNodesUnderNode(
      root.get(),
      [&](const ScanNodeRef&, std::optional<Error>& out) {
        if (++calls == 3) out = Error{"Test", 7, "stop"};
        return calls < 3;
      },
      &error));
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(error, (Error{"Test", 7, "stop"}));
  EXPECT_FALSE(store->enumerateNodesUnderNode(
      root.get(), [](const ScanNodeRef&, std::optional<Error>&) { return false; }, &error));
  EXPECT_EQ(error.domain, kSQLiteErrorDomain);
  EXPECT_TRUE(error.description.starts_with("Stream scan items: "));
  EXPECT_TRUE(store->enumerateNodesUnderNode(nullptr, nullptr));
}

TEST_F(QueryTest, FailedQueriesLeaveTheirErrorInLastReadError) {
  {
    test::Sql sql(file);
    sql.exec("ALTER TABLE items RENAME TO gone");
  }
  // The first statement was prepared against the old schema and fails when it runs.
  EXPECT_TRUE(store->allFilesUnderNode(root.get()).empty());
  EXPECT_EQ(store->lastReadError(),
            (Error{kSQLiteErrorDomain, SQLITE_ERROR, "Read scan items: no such table: items"}));
  EXPECT_TRUE(store->largestFilesUnderNode(root.get(), 3).empty());
  EXPECT_EQ(store->lastReadError(),
            (Error{kSQLiteErrorDomain, SQLITE_ERROR, "Prepare scan query: no such table: items"}));
  EXPECT_TRUE(store->childrenOfNode(*root).empty());
  EXPECT_TRUE(store->lastReadError());
  Error error;
  EXPECT_FALSE(store->fileExtensionSummaryUnderNode(root.get(), &error));
  EXPECT_EQ(error.description, "Prepare file-type summary: no such table: items");
  EXPECT_TRUE(store->filesUnderNode(root.get(), {"pdf"}, {}, 5, &error).empty());
  EXPECT_EQ(error.description, "Prepare file-type files query: no such table: items");
  {
    test::Sql sql(file);
    sql.exec("ALTER TABLE gone RENAME TO items");
  }
  EXPECT_EQ(store->allFilesUnderNode(root.get()).size(), 6u);
  EXPECT_FALSE(store->lastReadError());
}

}  // namespace
}  // namespace tw
