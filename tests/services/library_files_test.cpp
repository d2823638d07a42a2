// The library folder's names, listing order, pruning and clean-up of stray pending files.
#include "services/library_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <regex>

#include "services/library_test_support.h"

namespace tw {
namespace {

using test::listFolder;

void touch(const std::string& path, double ageSeconds = 0) {
  test::writeFile(path, "");
  struct utimbuf times;
  times.actime = times.modtime = ::time(nullptr) - static_cast<time_t>(ageSeconds);
  ASSERT_EQ(::utime(path.c_str(), &times), 0) << path;
}

TEST(LibraryNames, RetainedScanNameIsSaveTimeInMillisecondsAndAUUID) {
  EXPECT_EQ(library::retainedScanName(1700000000.1234, "ABC"), "1700000000123-ABC.sqlite");
  EXPECT_EQ(library::retainedScanName(1700000000.0005, "X"), "1700000000001-X.sqlite");
  EXPECT_EQ(library::pendingCacheName("ABC"), "LastScan-ABC.pending");
  const std::string uuid = library::newUUIDString();
  EXPECT_TRUE(std::regex_match(
      uuid, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
      << uuid;
  EXPECT_NE(uuid, library::newUUIDString());
}

TEST(LibraryListing, RetainedScansInNumericNameOrderSkippingHiddenAndOtherEntries) {
  test::TempTree tree;
  for (const char* name : {"1000-b.sqlite", "999-a.sqlite", "5.SQLITE", ".7-hidden.sqlite",
                           "notes.txt", "2-x.sqlite-journal", "8.archive"}) {
    touch(tree.path(name));
  }
  tree.folder("3-folder.sqlite");
  tree.symlink(tree.path("999-a.sqlite"), "4-link.sqlite");
  EXPECT_EQ(library::listRetainedScans(tree.root()),
            (std::vector<std::string>{tree.path("5.SQLITE"), tree.path("999-a.sqlite"),
                                      tree.path("1000-b.sqlite")}));
  EXPECT_TRUE(library::listRetainedScans(tree.path("missing")).empty());
}

TEST(LibraryPruning, KeepsExactlyTheNewest200ByNumericName) {
  test::TempTree tree;
  // 999… sorts before 1000… although it is greater as text.
  touch(tree.path("999999999999-Z.sqlite"));
  for (int i = 0; i < 200; ++i) touch(tree.path(std::to_string(1000000000000LL + i) + "-A.sqlite"));
  touch(tree.path(".0-hidden.sqlite"));
  touch(tree.path("0-other.txt"));
  EXPECT_EQ(library::pruneRetainedScans(tree.root()), 1u);
  const auto names = listFolder(tree.root());
  EXPECT_EQ(names.size(), 202u);
  EXPECT_EQ(std::count(names.begin(), names.end(), "999999999999-Z.sqlite"), 0);
  EXPECT_EQ(std::count(names.begin(), names.end(), ".0-hidden.sqlite"), 1);
  EXPECT_EQ(std::count(names.begin(), names.end(), "0-other.txt"), 1);

  // At the limit nothing goes; far above it, the oldest go first.
  EXPECT_EQ(library::pruneRetainedScans(tree.root()), 0u);
  for (int i = 0; i < 50; ++i) touch(tree.path(std::to_string(2000000000000LL + i) + "-B.sqlite"));
  EXPECT_EQ(library::pruneRetainedScans(tree.root()), 50u);
  const auto kept = library::listRetainedScans(tree.root());
  ASSERT_EQ(kept.size(), 200u);
  EXPECT_EQ(kept.front(), tree.path("1000000000050-A.sqlite"));
  EXPECT_EQ(kept.back(), tree.path("2000000000049-B.sqlite"));
}

TEST(LibraryPendingFiles, OnlyPendingFilesUntouchedForTenMinutesAreRemoved) {
  test::TempTree tree;
  touch(tree.path("LastScan-OLD.pending"), 11 * 60);
  touch(tree.path("LastScan-NEW.pending"), 60);
  touch(tree.path("LastScan.sqlite"), 3600);
  tree.folder("History");
  touch(tree.path("History/.1-A.sqlite-B.pending"), 11 * 60);
  touch(tree.path("History/.2-A.sqlite-C.pending"));
  touch(tree.path("History/1-A.sqlite"), 3600);
  tree.folder("History/old.pending");
  touch(tree.path(".pending"), 3600);  // nothing before the suffix: not ours
  const std::string target = tree.file("keep.txt", 10);
  ASSERT_EQ(::symlink(target.c_str(), tree.path("link.pending").c_str()), 0);
  EXPECT_EQ(library::removeStalePendingFiles(tree.root(), ::time(nullptr)), 1);
  EXPECT_EQ(library::removeStalePendingFiles(tree.path("History"), ::time(nullptr)), 1);
  EXPECT_EQ(listFolder(tree.root()),
            (std::vector<std::string>{".pending", "History", "LastScan-NEW.pending",
                                      "LastScan.sqlite", "keep.txt", "link.pending"}));
  EXPECT_EQ(listFolder(tree.path("History")),
            (std::vector<std::string>{".2-A.sqlite-C.pending", "1-A.sqlite", "old.pending"}));
}

class LibraryFolderTest : public test::LibraryTest {};

TEST_F(LibraryFolderTest, FolderIsTarnwellInXDGDataHomeCreatedWithItsParentsWhenAskedFor) {
  const std::string base = data.path("deep/er");
  ::setenv("XDG_DATA_HOME", base.c_str(), 1);
  auto library = makeLibrary();
  EXPECT_FALSE(library::pathExists(base));
  EXPECT_EQ(library->cachePath(), base + "/Tarnwell/LastScan.sqlite");
  EXPECT_TRUE(library::pathExists(base + "/Tarnwell"));
  EXPECT_EQ(library->legacyCachePath(), base + "/Tarnwell/LastScan.archive");
  EXPECT_EQ(library->scanMarkerPath(), base + "/Tarnwell/ScanInProgress");
  EXPECT_FALSE(library::pathExists(base + "/Tarnwell/History"));
  EXPECT_EQ(library->historyDirectoryPath(), base + "/Tarnwell/History");
  EXPECT_TRUE(library::pathExists(base + "/Tarnwell/History"));
}

TEST_F(LibraryFolderTest, MarkerLivesWhileScansRunAndGenerationCountsBatches) {
  auto library = makeLibrary();
  EXPECT_FALSE(library->discardInterruptedScanIfNeeded());
  EXPECT_EQ(library->scanGeneration(), 0u);
  library->beginPersistentScan();
  EXPECT_EQ(library->scanGeneration(), 1u);
  struct stat st;
  ASSERT_EQ(::stat(library->scanMarkerPath().c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 0);
  library->endPersistentScanCompleted(false);
  EXPECT_FALSE(library::pathExists(library->scanMarkerPath()));
  library->beginPersistentScan();
  EXPECT_EQ(library->scanGeneration(), 2u);
  // A marker left by a copy that was killed is removed at the next start.
  auto next = makeLibrary();
  EXPECT_TRUE(next->discardInterruptedScanIfNeeded());
  EXPECT_FALSE(library::pathExists(library->scanMarkerPath()));
}

}  // namespace
}  // namespace tw
