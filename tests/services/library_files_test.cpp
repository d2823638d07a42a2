// The library folder's names, listing order, pruning, markers and clean-up of stray pending files.
#include "services/library_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <regex>

#include "services/library_test_support.h"

namespace tw {
namespace {

using test::listFolder;
using Paths = std::vector<std::string>;

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

class LibraryFolderTest : public test::LibraryTest {};

TEST_F(LibraryFolderTest, FoldersAreMadeWhenAskedForTheMarkerLivesWhileABatchOfScansRuns) {
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
