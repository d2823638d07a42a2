// Reading a saved scan: each query, what it returns, in which order and what it leaves out, the
// error it leaves when the file cannot answer; children that load on first use, once, into the
// parent's tree; nodes that keep their store open; the lock order under concurrent use.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <functional>
#include <future>
#include <set>
#include <thread>

#include "store/scan_store.h"
#include "store/store_test_support.h"

namespace tw {
namespace {

using test::child;
using test::Names;
using test::namesOf;
class QueryTest : public ::testing::Test {
 protected:
  void SetUp() override { openTree(test::makeSampleTree()); }
  // Writes `tree`, lets `damage` change the file, and opens it.
  void openTree(const ScanNodeRef& tree, const std::function<void()>& damage = nullptr) {
    root.reset();
    store.reset();
    ASSERT_TRUE(ScanStore::writeRootNode(tree.get(), file));
    if (damage) damage();
    Error error;
    store = ScanStore::open(file, &error);
    ASSERT_TRUE(store) << error.description;
    root = store->rootNode();
    ASSERT_TRUE(root);
  }
  std::vector<std::string> children() { return namesOf(store->childrenOfNode(*root)); }
  test::TempTree tree;
  std::string file = tree.path("scan.sqlite");
  std::shared_ptr<ScanStore> store;
  ScanNodeRef root;
};

TEST_F(QueryTest, TheWrittenTreeReadsBackWholeWithAtMost500IssuesAndPathsFindNodes) {
  // Loaded on the way, every node comes back as written: names, paths, sizes, flags, dates, the
  // child order, the root's figures and issues.
  std::function<void(ScanNode*)> load = [&](ScanNode* n) {
    for (ScanNode* c : n->children()) load(c);
  };
  load(root.get());
  EXPECT_EQ(test::describeTree(root.get()), test::describeTree(test::makeSampleTree().get()));
  EXPECT_EQ(root->scanDate(), 1700000000.0);
  EXPECT_EQ(root->databaseNodeID(), 1);
  EXPECT_EQ(root->scanStore(), store);
  ScanNodeRef node = store->nodeAtPath("/data//docs/./a_b");
  ASSERT_TRUE(node);
  EXPECT_EQ(std::string(node->name()) + "|" + node->path(), "a_b|/data/docs/a_b");
  EXPECT_EQ(node->size(), 100u);
  EXPECT_EQ(node->parent(), nullptr);
  EXPECT_EQ(node->databaseNodeID(), 4);
  EXPECT_FALSE(store->nodeAtPath("/data/none"));
  EXPECT_FALSE(store->nodeAtPath(""));
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
  ScanNodeRef tree = ScanNode::makeRoot("/t", true);
  for (const char* name : {"b", "A", "c10", "c9", "C2"}) test::addNode(tree.get(), name, false, 5);
  test::addNode(tree.get(), "big", false, 9);
  openTree(tree);
  // Natural order would put C2 and c9 before c10; the stored order compares plain text.
  EXPECT_EQ(children(), (Names{"big", "A", "b", "c10", "C2", "c9"}));
}

TEST_F(QueryTest, ListsOfNodesAndFilesByNameAndByTypeLeaveOutFoldersAndSyntheticEntries) {
  ScanNodeRef sample = test::makeSampleTree();
  ScanNode* docs = sample->children()[0];
  const std::string raw = "bad\xff\xfename";  // not UTF-8: stored and found byte for byte
  for (const char* name : {"axb", "xa_by", "report.pdf.txt", "100%", "SCAN.PDF", raw.c_str()})
    test::addNode(docs, name, false, 50);
  openTree(sample);
  EXPECT_EQ(namesOf(store->allNodesUnderNode(child(root.get(), "docs"))),
            (Names{"docs", "a_b", "axb", "100%", "xa_by", "SCAN.PDF", raw, "notes.txt",
                   "report.pdf.txt", "Annual REPORT.pdf"}));
  EXPECT_EQ(store->allNodesUnderNode(root.get()).size(), 17u);
  ASSERT_TRUE(store->nodeAtPath("/data/docs/" + raw));
  EXPECT_EQ(store->nodeAtPath("/data/docs/" + raw)->name(), raw);
  EXPECT_EQ(test::Sql(file).integer("SELECT COUNT(*) FROM items WHERE typeof(name)<>'text'"), 0);
  EXPECT_EQ(namesOf(store->largestFilesUnderNode(root.get(), 3)),
            (Names{"Annual REPORT.pdf", "big.bin", "a_b"}));
  EXPECT_EQ(namesOf(store->largestFilesUnderNode(child(root.get(), "cache"), 10)),
            (Names{"big.bin"}));
  EXPECT_EQ(store->allFilesUnderNode(root.get()).size(), 12u);
  EXPECT_TRUE(store->largestFilesUnderNode(root.get(), 0).empty());
  EXPECT_TRUE(store->allFilesUnderNode(nullptr).empty());
  auto search = [&](std::string_view text, int64_t limit = 100) {
    return namesOf(store->filesUnderNode(root.get(), text, limit));
  };
  EXPECT_EQ(search("report"), (Names{"Annual REPORT.pdf", "report.pdf.txt"}));
  EXPECT_EQ(search(" \treport\n"), search("report"));
  EXPECT_EQ(search("*.pdf"), (Names{"Annual REPORT.pdf", "SCAN.PDF"}));
  EXPECT_EQ(search("a_b"), (Names{"a_b"}));  // "_" makes it a whole-name match
  EXPECT_EQ(search("t?ny.*"), (Names{"tiny.c", "Tiny.h"}));
  EXPECT_EQ(search("100%"), (Names{"100%"}));
  EXPECT_EQ(search("100"), (Names{"100%"}));
  EXPECT_TRUE(search("   ").empty());
  EXPECT_EQ(search("*", 2), (Names{"Annual REPORT.pdf", "big.bin"}));
  EXPECT_EQ(search("\xff\xfe"), (Names{raw}));
  Error error;
  auto summary = store->fileExtensionSummaryUnderNode(root.get(), &error);
  ASSERT_TRUE(summary) << error.description;
  std::set<std::string> byExtension;  // extension:bytes:count, lower-cased, folders left out
  for (const ExtensionSummary& line : *summary)
    byExtension.insert(line.extension + ":" + std::to_string(line.bytes) + ":" +
                       std::to_string(line.count));
  EXPECT_EQ(byExtension, (std::set<std::string>{":300:5", "bin:300:1", "c:30:1", "h:30:1",
                                                "pdf:450:2", "txt:150:2"}));
  auto byType = [&](std::vector<std::string> matching, std::vector<std::string> excluding,
                    int64_t limit) {
    auto nodes = store->filesUnderNode(root.get(), matching, excluding, limit, &error);
    EXPECT_FALSE(store->lastReadError());
    return namesOf(nodes);
  };
  EXPECT_EQ(byType({"PDF", "c"}, {"pdf"}, 10), (Names{"Annual REPORT.pdf", "SCAN.PDF", "tiny.c"}));
  EXPECT_EQ(byType({}, {"PDF", "", "txt"}, 10), (Names{"big.bin", "tiny.c", "Tiny.h"}));
  EXPECT_EQ(byType({}, {}, 100).size(), 12u);
  EXPECT_EQ(byType({}, {}, 1), (Names{"Annual REPORT.pdf"}));
  EXPECT_TRUE(byType({"pdf"}, {}, 0).empty());
}

TEST_F(QueryTest, CleanupCandidatesAreDSStoreFilesAndLargeOldItems) {
  const double now = static_cast<double>(time(nullptr)), day = 86400;
  ScanNodeRef tree = ScanNode::makeRoot("/Users/u", true);
  const std::tuple<const char*, bool, uint64_t, double> items[] = {
      {"Desktop/.DS_Store", false, 2048, now},
      {"Library/Caches/nine.bin", false, 9'000'000, now - 30 * day},
      {"Library/Caches/recent.bin", false, 50'000'000, now - 3 * day},
      {"Library/Caches/old.bin", false, 20'000'000, now - 30 * day},
      {"Library/Caches/folder", true, 15'000'000, now - 30 * day},
      {"Library/Caches/undated.bin", false, 30'000'000, std::nan("")},
      {"Downloads/old.iso", false, 11'000'000, now - 10 * day},
      {"Downloads/epoch.iso", false, 12'000'000, 0},  // modified at 0 s: a date, and old
      {"Documents/big.bin", false, 90'000'000, now - 90 * day}};
  for (const auto& [path, directory, size, date] : items)
    test::addPath(tree.get(), path, directory, size)->setModificationDate(date);
  openTree(tree);
  EXPECT_EQ(namesOf(store->cleanupCandidatesUnderNode(root.get(), 10)),
            (Names{"old.bin", "folder", "epoch.iso", "old.iso", ".DS_Store"}));
  EXPECT_EQ(namesOf(store->cleanupCandidatesUnderNode(root.get(), 1)), (Names{"old.bin"}));
  EXPECT_TRUE(store->cleanupCandidatesUnderNode(root.get(), 0).empty());
  EXPECT_TRUE(store->cleanupCandidatesUnderNode(nullptr, 10).empty());
}

TEST_F(QueryTest, DeletedRowsHideTheirSubtreeAndStreamingFollowsWriteOrderUntilStopped) {
  // Streams the ids until the `stopAt`-th row, which answers false (with an error when asked).
  auto stream = [&](int stopAt, bool withError, Error* error) {
    std::vector<int64_t> ids;
    const bool completed = store->enumerateNodesUnderNode(
        root.get(),
        [&](const ScanNodeRef& node, std::optional<Error>& out) {
          ids.push_back(node->databaseNodeID());
          if (withError && static_cast<int>(ids.size()) == stopAt) out = Error{"Test", 7, "stop"};
          return static_cast<int>(ids.size()) != stopAt;
        },
        error);
    EXPECT_EQ(completed, stopAt == 0);
    return ids;
  };
  Error error;
  EXPECT_EQ(stream(0, false, &error), (std::vector<int64_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(stream(3, true, &error).size(), 3u);
  EXPECT_EQ(error, (Error{"Test", 7, "stop"}));
  stream(1, false, &error);
  EXPECT_EQ(error.domain, kSQLiteErrorDomain);
  EXPECT_TRUE(error.description.starts_with("Stream scan items: "));
  EXPECT_TRUE(store->enumerateNodesUnderNode(nullptr, nullptr));
  test::Sql(file).exec("UPDATE items SET is_deleted=1 WHERE name='docs'");
  EXPECT_EQ(children(), (Names{"cache", "smaller objects\u2026", "hidden space\u2026"}));
  EXPECT_EQ(namesOf(store->allFilesUnderNode(root.get())), (Names{"big.bin", "tiny.c", "Tiny.h"}));
  EXPECT_TRUE(store->filesUnderNode(root.get(), "report", 10).empty());
  EXPECT_EQ(store->allNodesUnderNode(root.get()).size(), 7u);
  EXPECT_EQ(store->fileExtensionSummaryUnderNode(root.get())->size(), 3u);
  EXPECT_EQ(stream(0, false, nullptr).size(), 7u);
  test::Sql(file).exec("UPDATE items SET is_deleted=1 WHERE id=1");
  EXPECT_FALSE(store->rootNode());
  EXPECT_FALSE(store->lastReadError());
}

TEST_F(QueryTest, FailedQueriesLeaveTheirErrorInLastReadError) {
  test::Sql(file).exec("ALTER TABLE items RENAME TO gone");
  // The first statement was prepared against the old schema and fails when it runs.
  EXPECT_TRUE(store->allFilesUnderNode(root.get()).empty());
  EXPECT_EQ(store->lastReadError(),
            (Error{kSQLiteErrorDomain, SQLITE_ERROR, "Read scan items: no such table: items"}));
  EXPECT_TRUE(store->largestFilesUnderNode(root.get(), 3).empty());
  EXPECT_EQ(store->lastReadError(),
            (Error{kSQLiteErrorDomain, SQLITE_ERROR, "Prepare scan query: no such table: items"}));
  EXPECT_TRUE(children().empty());
  EXPECT_TRUE(store->lastReadError());
  Error error;
  EXPECT_FALSE(store->fileExtensionSummaryUnderNode(root.get(), &error));
  EXPECT_EQ(error.description, "Prepare file-type summary: no such table: items");
  EXPECT_TRUE(store->filesUnderNode(root.get(), {"pdf"}, {}, 5, &error).empty());
  EXPECT_EQ(error.description, "Prepare file-type files query: no such table: items");
  test::Sql(file).exec("ALTER TABLE gone RENAME TO items");
  EXPECT_EQ(store->allFilesUnderNode(root.get()).size(), 6u);
  EXPECT_FALSE(store->lastReadError());
  // Damaged pages of the index of parents: the root reads, its children do not.
  openTree(test::makeSampleTree(), [&] { test::damagePagesOf(file, "items_parent_idx"); });
  EXPECT_TRUE(root->children().empty());
  EXPECT_EQ(store->lastReadError(), (Error{kSQLiteErrorDomain, SQLITE_CORRUPT,
                                           "Read scan items: database disk image is malformed"}));
}

// How many descriptors of this process are open on `file`.
int openDescriptorsOn(const std::string& file) {
  int count = 0;
  std::error_code ec;
  for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd", ec))
    count += std::filesystem::read_symlink(fd.path(), ec) == std::filesystem::canonical(file, ec);
  return count;
}

// Twenty folders of fifty subfolders, each holding one file.
ScanNodeRef wideTree() {
  ScanNodeRef tree = ScanNode::makeRoot("/r", true);
  for (int f = 0; f < 20; ++f) {
    ScanNode* folder = test::addNode(tree.get(), "folder" + std::to_string(f), true, 1000 + f);
    for (int i = 0; i < 50; ++i)
      test::addNode(test::addNode(folder, "sub" + std::to_string(i), true, 10), "leaf.txt", false,
                    10);
  }
  return tree;
}

TEST_F(QueryTest, ChildrenLoadOnceIntoTheParentsTreeAndQueryAnswersStayOutOfIt) {
  openTree(wideTree());
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

TEST_F(QueryTest, StoreClosesWhenTheLastNodeHoldingItGoesAway) {
  openTree(wideTree());
  std::weak_ptr<ScanStore> weak = store;
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

TEST_F(QueryTest, ConcurrentLoadsAgreeAndAStreamCallbackMayLoadChildren) {
  openTree(wideTree());
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

}  // namespace
}  // namespace tw
