#include "app/library_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "app_test_support.h"
#include "gtest/gtest.h"

namespace tw {
namespace {

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

void touch(const std::string& path, time_t mtime) {
  std::ofstream(path) << "x";
  struct timespec times[2] = {{mtime, 0}, {mtime, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

TEST(LibraryFolder, LivesInTheDataHomeAndIsCreatedWhenAskedFor) {
  test::AppEnvironment env;
  EXPECT_FALSE(exists(env.libraryFolder()));
  EXPECT_EQ(libraryFolderPath(), env.libraryFolder());
  EXPECT_TRUE(exists(env.libraryFolder()));
  EXPECT_EQ(historyFolderPath(), env.libraryFolder() + "/History");
  EXPECT_TRUE(exists(env.libraryFolder() + "/History"));
  EXPECT_EQ(instanceLockPath(), env.libraryFolder() + "/Instance.lock");
  EXPECT_EQ(scanMarkerPath(), env.libraryFolder() + "/ScanInProgress");
}

TEST(LibraryFolder, DataHomeThatDoesNotExistYetIsCreatedWithItsParents) {
  test::AppEnvironment env;
  const std::string deep = env.home() + "/not/yet/there";
  ::setenv("XDG_DATA_HOME", deep.c_str(), 1);
  EXPECT_EQ(libraryFolderPath(), deep + "/Tarnwell");
  EXPECT_TRUE(exists(deep + "/Tarnwell"));
}

TEST(LibraryFolder, InterruptedScanMarkerIsDiscarded) {
  test::AppEnvironment env;
  EXPECT_FALSE(discardInterruptedScanIfNeeded());
  std::ofstream(scanMarkerPath()).flush();
  EXPECT_TRUE(discardInterruptedScanIfNeeded());
  EXPECT_FALSE(exists(scanMarkerPath()));
}

TEST(LibraryFolder, PendingFilesGoOnlyWhenTenMinutesOld) {
  test::TempTree tree;
  const std::string dir = tree.folder("lib");
  const time_t now = 1'700'000'000;
  touch(dir + "/LastScan-A.pending", now - 600);       // exactly ten minutes: left behind
  touch(dir + "/.scan.sqlite-B.pending", now - 3600);  // hidden names too
  touch(dir + "/LastScan-C.pending", now - 599);       // still being written, perhaps
  touch(dir + "/LastScan.sqlite", now - 3600);
  touch(dir + "/.pending", now - 3600);  // nothing before the suffix: not ours
  touch(dir + "/a.pending.sqlite", now - 3600);
  ASSERT_EQ(::mkdir((dir + "/folder.pending").c_str(), 0755), 0);
  const std::string target = tree.file("elsewhere/keep.txt", 10);
  ASSERT_EQ(::symlink(target.c_str(), (dir + "/link.pending").c_str()), 0);
  tree.folder("lib/sub");
  touch(dir + "/sub/deep.pending", now - 3600);  // the walk does not recurse

  EXPECT_EQ(removeStalePendingFiles(dir, now), 2);
  EXPECT_FALSE(exists(dir + "/LastScan-A.pending"));
  EXPECT_FALSE(exists(dir + "/.scan.sqlite-B.pending"));
  for (const char* kept :
       {"/LastScan-C.pending", "/LastScan.sqlite", "/.pending", "/a.pending.sqlite",
        "/folder.pending", "/link.pending", "/sub/deep.pending"}) {
    EXPECT_TRUE(exists(dir + kept)) << kept;
  }
  EXPECT_TRUE(exists(target));
  EXPECT_EQ(removeStalePendingFiles(tree.path("missing"), now), 0);
}

}  // namespace
}  // namespace tw
