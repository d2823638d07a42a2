// Whether the process may read every folder, which folders it may enter, and which mounts are
// disks.
#include "platform/disk_access.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/mounted_disks.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

TEST(DiskAccess, DacReadSearchIsBitTwoOfTheEffectiveSet) {
  // CAP_DAC_OVERRIDE (bit 1) alone, or the bit in another set, does not count.
  const std::pair<const char*, bool> cases[] = {
      {"Name:\tx\nCapInh:\t0\nCapEff:\t0000000000000004\n", true},  // bit 2
      {"CapPrm:\t0\nCapEff:\t000001ffffffffff\nCapBnd:\t0\n", true},
      {"CapEff:\t0000000000000002\n", false},
      {"CapEff:\tzz\n", false},
      {"", false},
      {"CapPrm:\t0000000000000004\nCapEff:\t0000000000000000\n", false}};
  for (const auto& [status, granted] : cases)
    EXPECT_EQ(statusGrantsDacReadSearch(status), granted) << status;
}

TEST(DiskAccess, RootHasFullDiskAccessAndNobodyDoesNot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to compare both sides";
  EXPECT_TRUE(hasFullDiskAccess());
  EXPECT_EQ(test::runUnprivileged([] { return hasFullDiskAccess() ? 1 : 0; }), 0);
}

TEST(DiskAccess, FolderIsUnlockedOnlyWhenItCanBeListedAndEntered) {
  test::TempTree tree;
  const std::string open = tree.folder("open"), listOnly = tree.folder("listOnly"),
                    closed = tree.folder("closed");
  ASSERT_EQ(
      ::chmod(open.c_str(), 0755) | ::chmod(listOnly.c_str(), 0744) | ::chmod(closed.c_str(), 0700),
      0);
  EXPECT_TRUE(isReadableAndSearchable(open));
  EXPECT_FALSE(isReadableAndSearchable(tree.path("missing")));
  EXPECT_FALSE(isReadableAndSearchable(""));
  if (geteuid() == 0) {
    EXPECT_EQ(test::runUnprivileged([&] {
                return (isReadableAndSearchable(open) ? 0 : 1) |
                       (isReadableAndSearchable(listOnly) ? 2 : 0) |
                       (isReadableAndSearchable(closed) ? 4 : 0);
              }),
              0);
  }
}

TEST(MountedDisks, RootFirstThenRealDisksEachDeviceOnce) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"22 1 0:21 / /proc rw,nosuid - proc proc rw\n"
       "24 1 8:18 /home /home/bind rw - ext4 /dev/sdb2 rw\n"
       "25 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n"
       "26 25 0:5 / /dev rw - devtmpfs udev rw\n"
       "27 25 8:18 / /home rw shared:2 - ext4 /dev/sdb2 rw\n"
       "28 25 8:1 / /boot/efi rw - vfat /dev/sda1 rw\n"
       "29 25 7:3 / /snap/core/1 ro - squashfs /dev/loop3 ro\n"
       "30 25 0:40 / /run/user/1000 rw - tmpfs tmpfs rw\n"
       "31 25 8:33 / /media/u/My\\040Disk rw - exfat /dev/sdc1 rw\n"
       "32 25 0:45 / /mnt/net rw - nfs4 server:/export rw\n"
       "33 25 8:2 /@snap /mnt/snap rw - btrfs /dev/sda2 rw\n",
       // The bind mount of /home's device and the subvolume of the root's device get no rows.
       {"/", "/home", "/boot/efi", "/media/u/My Disk"}},
      // An overlay root is still the root row; broken lines are skipped.
      {"100 90 0:55 / / rw - overlay overlay rw,lowerdir=/a\n"
       "101 100 0:56 / /proc rw - proc proc rw\n"
       "102 100 259:1 / /mnt/data rw - xfs /dev/nvme0n1p1 rw\n"
       "broken line\n\n",
       {"/", "/mnt/data"}}};
  for (const auto& [mountinfo, expected] : cases) {
    const std::vector<MountedDisk> disks = parseMountedDisks(mountinfo);
    std::vector<std::string> paths;
    for (const MountedDisk& disk : disks) paths.push_back(disk.mountPath);
    EXPECT_EQ(paths, expected);
  }
  const MountedDisk root = parseMountedDisks(cases[0].first)[0];
  EXPECT_EQ(root.fileSystemType, "ext4");
  EXPECT_EQ(root.source, "/dev/sda2");
}

TEST(MountedDisks, DefaultRowsAreRootHomeAndRemovableMountPlaces) {
  for (const char* path :
       {"/", "/home", "/home/u/data", "/media/u/stick", "/run/media/u/stick", "/mnt/backup"})
    EXPECT_TRUE(isDefaultOverviewDisk(MountedDisk{path, "/dev/x", "ext4", 1})) << path;
  for (const char* path : {"/boot/efi", "/mnt", "/homework"})
    EXPECT_FALSE(isDefaultOverviewDisk(MountedDisk{path, "/dev/x", "ext4", 1})) << path;
}

}  // namespace
}  // namespace tw
