// Saving a finished scan (the History file, the binding of the root, when the current cache may be
// replaced; write, copy and rename failures lose nothing) and the library folder's files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <QThreadPool>
#include <regex>

#include "services/library_files.h"
#include "services/library_preferences.h"
#include "services/library_test_support.h"
#include "store/scan_store.h"

namespace tw {
namespace {

using test::listFolder;
using Paths = std::vector<std::string>;
using test::FaultyCalls;
using test::makeScan;
using test::readFile;

class LibrarySaveTest : public test::LibraryTest {
 protected:
  std::vector<std::string> retained() { return library::listRetainedScans(historyFolder()); }
  void expectNoPendingFiles() {
    for (const std::string& folder : {libraryFolder(), historyFolder()})
      for (const std::string& name : test::listFolder(folder))
        EXPECT_FALSE(name.ends_with(".pending")) << name;
  }
};

TEST_F(LibrarySaveTest, AcceptedScanEntersHistoryBindsTheRootAndBecomesTheCacheKeepingItsMode) {
  library::setForgottenScanDate("/data", 5e9);
  ScanNodeRef root = makeScan("/data/", 1700000000.25, 5);
  const double before = library::currentTime();
  SaveOutcome outcome = acceptAndWait(*library, root);
  const double after = library::currentTime();
  EXPECT_TRUE(outcome.written && outcome.bound && outcome.copied && outcome.cacheReplaced);
  EXPECT_EQ(library->cachedRoot(), root);
  EXPECT_TRUE(library->forgottenScanDates().empty());  // a new scan shows again
  ASSERT_EQ(retained(), std::vector<std::string>{outcome.historyPath});
  std::smatch match;
  const std::string name = outcome.historyPath.substr(historyFolder().size() + 1);
  ASSERT_TRUE(std::regex_match(name, match, std::regex("([0-9]+)-[0-9A-F-]{36}\\.sqlite"))) << name;
  EXPECT_GE(std::stoll(match[1]), static_cast<long long>(before * 1000) - 1);
  EXPECT_LE(std::stoll(match[1]), static_cast<long long>(after * 1000) + 1);
  // The root reads through its History file; the cache is a byte copy of it.
  ASSERT_TRUE(root->scanStore());
  EXPECT_EQ(root->scanStore()->path(), outcome.historyPath);
  EXPECT_EQ(root->databaseNodeID(), root->scanStore()->rootNodeID());
  EXPECT_EQ(readFile(cacheFile()), readFile(outcome.historyPath));
  EXPECT_EQ(test::storedDate(cacheFile()), 1700000000.25);
  expectNoPendingFiles();
  EXPECT_TRUE(logged.empty());

  // A replaced cache keeps the permissions of the old one.
  ASSERT_EQ(::chmod(cacheFile().c_str(), 0600), 0);
  acceptAndWait(*library, makeScan("/b", 200));
  struct stat st;
  ASSERT_EQ(::stat(cacheFile().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(test::storedLocation(cacheFile()), "/b");
}

TEST_F(LibrarySaveTest, SaveOfAStaleGenerationOrOfARootNoLongerCurrentAddsHistoryButNoCache) {
  library->beginPersistentScan();
  acceptAndWait(*library, makeScan("/a", 100));
  const std::string cacheBefore = readFile(cacheFile());
  auto save = [&](const ScanNodeRef& root, uint64_t generation, const auto& meanwhile) {
    std::optional<SaveOutcome> outcome;
    library->saveCachedScanForRoot(root, generation, [&](const SaveOutcome& o) { outcome = o; });
    meanwhile();
    ASSERT_TRUE(main.runUntil([&] { return outcome.has_value(); }));
    EXPECT_TRUE(outcome->written && outcome->bound && outcome->copied);
    EXPECT_FALSE(outcome->cacheReplaced);
    EXPECT_EQ(root->scanStore()->path(), outcome->historyPath);
    EXPECT_EQ(readFile(cacheFile()), cacheBefore);
  };
  // A new batch began while this one was saving.
  ScanNodeRef late = makeScan("/b", 200);
  library->setCachedRoot(late);
  const uint64_t generation = library->scanGeneration();
  library->beginPersistentScan();
  save(late, generation, [] {});
  // Before the save comes back, another result becomes current.
  save(makeScan("/c", 300), library->scanGeneration(),
       [&] { library->setCachedRoot(makeScan("/d", 400)); });
  EXPECT_EQ(retained().size(), 3u);
  expectNoPendingFiles();
}

TEST_F(LibrarySaveTest, FailedWriteCopyOrReplaceKeepsTheOldCacheAndLogsOneLine) {
  ScanLibrary::Options options;
  options.calls = FaultyCalls::calls();
  auto library = makeLibrary(std::move(options));
  acceptAndWait(*library, makeScan("/a", 100));
  const std::string cacheBefore = readFile(cacheFile());
  const struct {
    const char* target;  // "/History/." is the writer's hidden temporary file
    int write, rename;
    bool written, copied;
    std::string log;
  } faults[] = {
      {"/History/.", ENOSPC, 0, false, false, "Unable to save the scan database: "},
      {"/LastScan-", ENOSPC, 0, true, false,
       "Unable to copy the scan for the current cache: " + posixError(ENOSPC).description},
      {"/LastScan-", 0, EIO, true, true,
       "Unable to replace the current scan cache: " + posixError(EIO).description},
  };
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.log);
    FaultyCalls::target = fault.target;
    FaultyCalls::failWrite = fault.write;
    FaultyCalls::failRename = fault.rename;
    logged.clear();
    const auto historyBefore = retained();
    ScanNodeRef root = makeScan("/b", 200);
    SaveOutcome outcome = acceptAndWait(*library, root);
    EXPECT_EQ(outcome.written, fault.written);
    EXPECT_EQ(outcome.bound, fault.written);
    EXPECT_EQ(outcome.copied, fault.copied);
    EXPECT_FALSE(outcome.cacheReplaced);
    EXPECT_EQ(library->cachedRoot(), root);
    // Unwritten, the result stays in memory only.
    EXPECT_EQ(root->scanStore() ? root->scanStore()->path() : "-",
              fault.written ? outcome.historyPath : "-");
    EXPECT_EQ(retained().size(), historyBefore.size() + fault.written);
    EXPECT_EQ(readFile(cacheFile()), cacheBefore);
    expectNoPendingFiles();
    ASSERT_EQ(logged.size(), 1u);
    // A write fails with SQLite's own words after the prefix; the others with the system's.
    EXPECT_TRUE(fault.written ? logged[0] == fault.log : logged[0].starts_with(fault.log))
        << logged[0];
  }
}

TEST_F(LibrarySaveTest, SavePrunesHistoryToTheNewest200OverAllLocations) {
  const std::string history = library->historyDirectoryPath();
  // Two hundred older scans, one with the old name without a UUID.
  test::writeScan(history + "/999.sqlite", "/old", 1);
  for (int i = 1; i < 200; ++i)
    ::link((history + "/999.sqlite").c_str(),
           (history + "/" + std::to_string(1000 + i) + "-A.sqlite").c_str());
  SaveOutcome outcome = acceptAndWait(*library, makeScan("/new", 100));
  const auto kept = retained();
  ASSERT_EQ(kept.size(), 200u);
  EXPECT_EQ(kept.front(), history + "/1001-A.sqlite");
  EXPECT_EQ(kept.back(), outcome.historyPath);
}

TEST_F(LibrarySaveTest, OverlappingSavesEachKeepTheirFileAndAnOlderCopyNeverReplacesANewerCache) {
  // Background work waits here and runs in the order the test picks.
  std::vector<std::function<void()>> pool;
  ScanLibrary::Options options;
  options.backgroundExecutor = [&pool](std::function<void()> work) { pool.push_back(work); };
  auto library = makeLibrary(std::move(options));
  auto run = [&pool](std::size_t index) {
    auto work = std::move(pool.at(index));
    pool.erase(pool.begin() + static_cast<std::ptrdiff_t>(index));
    work();
  };
  std::optional<SaveOutcome> first, second;
  ScanNodeRef a = makeScan("/a", 100), b = makeScan("/b", 200);
  library->acceptCompletedScan(a, [&](const SaveOutcome& o) { first = o; });
  run(0);         // write and copy /a
  main.drain(0);  // /a is chosen as the cache; its rename waits on the pool
  ASSERT_EQ(pool.size(), 1u);
  library->acceptCompletedScan(b, [&](const SaveOutcome& o) { second = o; });
  run(pool.size() - 1);  // write and copy /b
  main.drain(0);         // /b is chosen too
  run(pool.size() - 1);  // /b goes in place first
  main.drain(0);
  ASSERT_TRUE(second);
  while (!pool.empty()) run(0);  // then the older /a arrives; the replaced tree is released
  main.drain(0);
  ASSERT_TRUE(first);
  EXPECT_TRUE(second->cacheReplaced);
  EXPECT_FALSE(first->cacheReplaced);
  EXPECT_EQ(test::storedLocation(cacheFile()), "/b");
  EXPECT_EQ(retained().size(), 2u);
  EXPECT_TRUE(a->scanStore() && b->scanStore());
  expectNoPendingFiles();
}

TEST_F(LibrarySaveTest, LibraryGoneBeforeASaveOrRestoreReturnsChangesNothingOnScreen) {
  test::writeScan(library->historyDirectoryPath() + "/1-A.sqlite", "/saved", 50);
  bool called = false;
  library->setHandlers({[&](const std::vector<ScanNodeRef>&) { called = true; }, {}, {}});
  ScanNodeRef root = makeScan("/a", 100);
  library->acceptCompletedScan(root, [&](const SaveOutcome&) { called = true; });
  library->loadCachedScanAsynchronously([&](const RestoreOutcome&) { called = true; });
  library.reset();
  QThreadPool::globalInstance()->waitForDone();
  main.drain(0.1);
  EXPECT_FALSE(called);
  EXPECT_FALSE(root->scanStore());
  EXPECT_FALSE(library::pathExists(cacheFile()));
  expectNoPendingFiles();
}

void touch(const std::string& path, double ageSeconds = 0) {
  test::writeFile(path, "");
  struct utimbuf times;
  times.actime = times.modtime = ::time(nullptr) - static_cast<time_t>(ageSeconds);
  ASSERT_EQ(::utime(path.c_str(), &times), 0) << path;
}

TEST(LibraryFiles, RetainedScansAreNamedListedAndPrunedInNumericOrder) {
  EXPECT_EQ(library::retainedScanName(1700000000.1234, "ABC"), "1700000000123-ABC.sqlite");
  EXPECT_EQ(library::retainedScanName(1700000000.0005, "X"), "1700000000001-X.sqlite");
  EXPECT_EQ(library::pendingCacheName("ABC"), "LastScan-ABC.pending");
  const std::string uuid = library::newUUIDString();
  EXPECT_TRUE(std::regex_match(
      uuid, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
  EXPECT_NE(uuid, library::newUUIDString());

  test::TempTree tree;
  // Only plain files named "<digits>….sqlite" count, whatever the case of the suffix.
  for (const char* name : {"1000-b.sqlite", "999-a.sqlite", "5.SQLITE", ".7-hidden.sqlite",
                           "notes.txt", "2-x.sqlite-journal", "8.archive"})
    touch(tree.path(name));
  tree.folder("3-folder.sqlite");
  tree.symlink(tree.path("999-a.sqlite"), "4-link.sqlite");
  EXPECT_EQ(library::listRetainedScans(tree.root()),
            (Paths{tree.path("5.SQLITE"), tree.path("999-a.sqlite"), tree.path("1000-b.sqlite")}));
  EXPECT_TRUE(library::listRetainedScans(tree.path("missing")).empty());

  // 199 more: at the limit of 200 nothing goes; above it the oldest by number go first.
  for (int i = 0; i < 197; ++i) touch(tree.path(std::to_string(1000000 + i) + "-A.sqlite"));
  EXPECT_EQ(library::pruneRetainedScans(tree.root()), 0u);
  for (int i = 0; i < 2; ++i) touch(tree.path(std::to_string(2000000 + i) + "-B.sqlite"));
  EXPECT_EQ(library::pruneRetainedScans(tree.root()), 2u);
  const Paths kept = library::listRetainedScans(tree.root());
  ASSERT_EQ(kept.size(), 200u);
  EXPECT_EQ(kept.front(), tree.path("1000-b.sqlite"));  // 5 and 999 went: numbers, not text
  EXPECT_EQ(kept.back(), tree.path("2000001-B.sqlite"));
  EXPECT_EQ(listFolder(tree.root()).size(), 9u + 199 - 2);  // nothing else goes
}

TEST(LibraryFiles, OnlyPendingFilesUntouchedForTenMinutesAreRemoved) {
  test::TempTree tree;
  touch(tree.path("LastScan-OLD.pending"), 11 * 60);
  touch(tree.path("LastScan-NEW.pending"), 60);
  touch(tree.path("LastScan.sqlite"), 3600);
  touch(tree.path("History/.1-A.sqlite-B.pending"), 11 * 60);
  touch(tree.path("History/.2-A.sqlite-C.pending"));
  touch(tree.path("History/1-A.sqlite"), 3600);
  tree.folder("History/old.pending");
  touch(tree.path(".pending"), 3600);  // nothing before the suffix: not ours
  ASSERT_EQ(::symlink(tree.file("keep.txt", 10).c_str(), tree.path("link.pending").c_str()), 0);
  EXPECT_EQ(library::removeStalePendingFiles(tree.root(), ::time(nullptr)), 1);
  EXPECT_EQ(library::removeStalePendingFiles(tree.path("History"), ::time(nullptr)), 1);
  EXPECT_EQ(listFolder(tree.root()), (Paths{".pending", "History", "LastScan-NEW.pending",
                                            "LastScan.sqlite", "keep.txt", "link.pending"}));
  EXPECT_EQ(listFolder(tree.path("History")),
            (Paths{".2-A.sqlite-C.pending", "1-A.sqlite", "old.pending"}));
}

TEST_F(LibrarySaveTest, FoldersAreMadeWhenAskedForTheMarkerLivesWhileABatchOfScansRuns) {
  const std::string base = data.path("deep/er");
  ::setenv("XDG_DATA_HOME", base.c_str(), 1);
  auto library = makeLibrary();
  EXPECT_FALSE(library::pathExists(base));
  EXPECT_EQ(library->cachePath(), base + "/Tarnwell/LastScan.sqlite");
  EXPECT_TRUE(library::pathExists(base + "/Tarnwell"));
  EXPECT_EQ(library->legacyCachePath(), base + "/Tarnwell/LastScan.archive");
  EXPECT_FALSE(library::pathExists(base + "/Tarnwell/History"));
  EXPECT_EQ(library->historyDirectoryPath(), base + "/Tarnwell/History");
  EXPECT_TRUE(library::pathExists(base + "/Tarnwell/History"));

  const std::string marker = library->scanMarkerPath();
  EXPECT_EQ(marker, base + "/Tarnwell/ScanInProgress");
  EXPECT_FALSE(library->discardInterruptedScanIfNeeded());
  EXPECT_EQ(library->scanGeneration(), 0u);
  library->beginPersistentScan();
  EXPECT_EQ(library->scanGeneration(), 1u);
  EXPECT_EQ(test::readFile(marker), "");
  EXPECT_TRUE(library::pathExists(marker));
  library->endPersistentScanCompleted(false);
  EXPECT_FALSE(library::pathExists(marker));
  library->beginPersistentScan();
  EXPECT_EQ(library->scanGeneration(), 2u);
  // A marker left by a copy that was killed is removed at the next start.
  EXPECT_TRUE(makeLibrary()->discardInterruptedScanIfNeeded());
  EXPECT_FALSE(library::pathExists(marker));
}

}  // namespace
}  // namespace tw
