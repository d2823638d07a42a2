// Platform rules: whether the process may read every folder, which folders it may enter, which
// mounts are disks, the volume of a path and package names; standard paths, names and
// containment, links resolved for many paths at once, the natural name order and wildcard matching
// of names.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <sstream>
#include <string>
#include <vector>

#include "platform/disk_access.h"
#include "platform/mounted_disks.h"
#include "platform/natural_order.h"
#include "platform/paths.h"
#include "platform/real_path_cache.h"
#include "platform/volume_layout.h"
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

TEST(DiskAccess, FolderIsUnlockedOnlyWhenItCanBeListedAndEnteredAndOnlyRootReadsEverything) {
  test::TempTree tree;
  const std::string open = tree.folder("open"), listOnly = tree.folder("listOnly"),
                    closed = tree.folder("closed");
  ASSERT_EQ(
      ::chmod(open.c_str(), 0755) | ::chmod(listOnly.c_str(), 0744) | ::chmod(closed.c_str(), 0700),
      0);
  EXPECT_TRUE(isReadableAndSearchable(open));
  EXPECT_FALSE(isReadableAndSearchable(tree.path("missing")));
  EXPECT_FALSE(isReadableAndSearchable(""));
  if (geteuid() != 0) return;  // only root can compare both sides
  EXPECT_TRUE(hasFullDiskAccess());
  EXPECT_EQ(test::runUnprivileged([&] {
              return (isReadableAndSearchable(open) ? 0 : 1) |
                     (isReadableAndSearchable(listOnly) ? 2 : 0) |
                     (isReadableAndSearchable(closed) ? 4 : 0) | (hasFullDiskAccess() ? 8 : 0);
            }),
            0);
}

// A desktop: bind mounts of a folder (the first before its device's whole mount, the other of a
// device never mounted whole) and a subvolume of the root's device get no rows.
constexpr const char* kDesktop =
    "22 1 0:21 / /proc rw,nosuid - proc proc rw\n"
    "24 1 8:18 /home /home/bind rw - ext4 /dev/sdb2 rw\n"
    "25 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n"
    "26 25 0:5 / /dev rw - devtmpfs udev rw\n"
    "27 25 8:18 / /home rw shared:2 - ext4 /dev/sdb2 rw\n"
    "28 25 8:1 / /boot/efi rw - vfat /dev/sda1 rw\n"
    "29 25 7:3 / /snap/core/1 ro - squashfs /dev/loop3 ro\n"
    "30 25 0:40 / /run/user/1000 rw - tmpfs tmpfs rw\n"
    "31 25 8:33 / /media/u/My\\040Disk rw - exfat /dev/sdc1 rw\n"
    "32 25 0:45 / /mnt/net rw - nfs4 server:/export rw\n"
    "33 25 8:2 /@snap /mnt/snap rw - btrfs /dev/sda2 rw\n"
    "34 25 8:49 /projects /srv/projects rw - ext4 /dev/sdd1 rw\n";
// A container: an overlay root, and a host disk's file bound over /etc/hosts; broken lines.
constexpr const char* kContainer =
    "100 90 0:55 / / rw - overlay overlay rw,lowerdir=/a\n"
    "101 100 0:56 / /proc rw - proc proc rw\n"
    "102 100 259:1 / /mnt/data rw - xfs /dev/nvme0n1p1 rw\n"
    "103 100 8:1 /var/lib/docker/containers/c/hosts /etc/hosts rw - ext4 /dev/sda1 rw\n"
    "broken line\n\n";
// btrfs: "/" and /home are subvolumes of one device; another device has a subvolume at /data,
// a folder of it bound to /srv/photos, and its top level at /mnt/pool.
constexpr const char* kBtrfs =
    "40 1 0:30 /@ / rw - btrfs /dev/nvme0n1p2 rw,ssd,subvolid=256,subvol=/@\n"
    "41 40 0:30 /@home /home rw - btrfs /dev/nvme0n1p2 rw,subvolid=257,subvol=/@home\n"
    "42 40 0:31 /@data /data rw - btrfs /dev/sdb1 rw,subvolid=256,subvol=/@data\n"
    "43 40 0:31 /@data/photos /srv/photos rw - btrfs /dev/sdb1 rw,subvolid=256,subvol=/@data\n"
    "44 40 0:31 / /mnt/pool rw - btrfs /dev/sdb1 rw,subvolid=5,subvol=/\n";
// A chroot: its root's mount is not listed; the host's /home is bound in.
constexpr const char* kChroot =
    "60 59 0:5 / /proc rw - proc proc rw\n"
    "61 59 8:2 /home /home rw - ext4 /dev/sda2 rw\n"
    "62 59 8:17 / /mnt/usb rw - vfat /dev/sdb1 rw\n";
const uint64_t kChrootDevice = makedev(8, 2);

TEST(MountedDisks, RootFirstThenWholeRealDisksEachDeviceOnceSomeOfThemByDefault) {
  const std::tuple<const char*, uint64_t, std::vector<std::string>> cases[] = {
      {kDesktop, 0, {"/", "/home", "/boot/efi", "/media/u/My Disk"}},
      {kContainer, 0, {"/", "/mnt/data"}},
      {kBtrfs, 0, {"/", "/mnt/pool"}},
      {kChroot, kChrootDevice, {"/", "/mnt/usb"}},
      {kChroot, 0, {"/mnt/usb"}}};
  for (const auto& [mountinfo, rootDevice, expected] : cases) {
    std::vector<std::string> paths;
    for (const MountedDisk& disk : parseMountedDisks(mountinfo, rootDevice))
      paths.push_back(disk.mountPath);
    EXPECT_EQ(paths, expected) << mountinfo;
  }
  const MountedDisk root = parseMountedDisks(kDesktop)[0];
  EXPECT_EQ(root.fileSystemType + " " + root.source + " " + std::to_string(root.mountID),
            "ext4 /dev/sda2 25");
  // Rows by default: the root, /home and below, and below the removable mount places.
  for (const char* path :
       {"/", "/home", "/home/u/data", "/media/u/stick", "/run/media/u/stick", "/mnt/backup"})
    EXPECT_TRUE(isDefaultOverviewDisk(MountedDisk{path, "/dev/x", "ext4", 1})) << path;
  for (const char* path : {"/boot/efi", "/mnt", "/homework"})
    EXPECT_FALSE(isDefaultOverviewDisk(MountedDisk{path, "/dev/x", "ext4", 1})) << path;
}

TEST(MountedDisks, AMountBelongsToItsOwnDiskOrTheListedDiskOfItsDevice) {
  // (mountinfo, mount id, root device) -> the disk's mount path, "none", or "unlisted".
  const std::tuple<const char*, uint64_t, uint64_t, const char*> cases[] = {
      {kDesktop, 25, 0, "/"},
      {kDesktop, 27, 0, "/home"},
      {kDesktop, 24, 0, "/home"},
      {kDesktop, 33, 0, "/"},
      {kDesktop, 30, 0, "none"},
      {kDesktop, 34, 0, "none"},
      {kDesktop, 999, 0, "unlisted"},
      {kBtrfs, 40, 0, "/"},
      {kBtrfs, 41, 0, "/"},
      {kBtrfs, 43, 0, "/mnt/pool"},
      {kContainer, 103, 0, "none"},
      {kChroot, 61, kChrootDevice, "/"},
      {kChroot, 7, kChrootDevice, "unlisted"}};
  for (const auto& [mountinfo, id, rootDevice, expected] : cases) {
    const DiskOfMount place = diskOfMount(mountinfo, id, rootDevice);
    const std::string got = !place.listed ? "unlisted"
                            : place.disk  ? place.disk->mountPath
                                          : "none";
    EXPECT_EQ(got, expected) << "mount " << id << " of\n" << mountinfo;
  }
}

// mountinfo without the line of the root's mount, as a chroot sees it.
std::string withoutRootLine(const std::string& mountinfo) {
  struct statx st {};
  statx(AT_FDCWD, "/", 0, STATX_MNT_ID, &st);
  std::istringstream in(mountinfo);
  std::string out;
  for (std::string line; std::getline(in, line);)
    if (line.rfind(std::to_string(st.stx_mnt_id) + " ", 0) != 0) out += line + "\n";
  return out;
}

TEST(LinuxVolumeLayout, RootIsTheRootDiskWithFiguresWhetherOrNotMountinfoListsIt) {
  const std::string mountinfo = readMountInfo();
  for (const std::string& seen : {mountinfo, withoutRootLine(mountinfo), std::string()}) {
    auto layout = makeLinuxVolumeLayout([seen] { return seen; });
    auto volume = layout->volumeForPath("/");
    ASSERT_TRUE(volume.has_value()) << seen;
    EXPECT_EQ(volume->mountPath, "/");
    EXPECT_FALSE(volume->name.empty());
    EXPECT_GT(volume->totalCapacity, 0u);
    EXPECT_LE(volume->availableCapacity, volume->totalCapacity);
    EXPECT_GE(volume->availableForImportantUsage, volume->availableCapacity);
    EXPECT_FALSE(layout->volumeForPath("/no/such/place").has_value());
  }
  auto layout = makeLinuxVolumeLayout();
  EXPECT_TRUE(layout->systemRoot().empty() && layout->protectedLocations().empty() &&
              layout->mountedSystemVolumes().empty());
  // proc is a mount of no disk.
  EXPECT_FALSE(layout->volumeForPath("/proc/self").has_value());
  // Without its mountinfo line the root still gets the wording's name.
  const std::string chroot = withoutRootLine(mountinfo);
  EXPECT_EQ(makeLinuxVolumeLayout([&] { return chroot; })->volumeForPath("/")->name, "Root Disk");
  // Package names need a stem and ignore case.
  for (const char* name : {"Safari.app", "Thing.FRAMEWORK", "x.photoslibrary"})
    EXPECT_TRUE(isPackageName(name)) << name;
  for (const char* name : {".app", "app", "Build.xcarchive", "notes.apps"})
    EXPECT_FALSE(isPackageName(name)) << name;
}

TEST(Paths, StandardFormNamesParentsAndInsideMeaningBelowTheFolderFollowedBySlash) {
  const std::pair<const char*, const char*> cases[] = {{"/a//b/./c/", "/a/b/c"},
                                                       {"/a/b/../c", "/a/c"},
                                                       {"/..", "/"},  // odd bytes stay
                                                       {"/", "/"},
                                                       {"", ""},
                                                       {"/bad\xff/n\xfe", "/bad\xff/n\xfe"}};
  for (const auto& [path, standard] : cases) EXPECT_EQ(standardizePath(path), standard) << path;
  // User paths expand a leading tilde first and never touch the disk.
  const std::string home = homeDirectory();
  EXPECT_EQ(standardizeUserPath("~"), standardizePath(home));
  EXPECT_EQ(standardizeUserPath("~/a/../b/"), standardizePath(home + "/b"));
  EXPECT_EQ(standardizeUserPath("/no/such/./x/.."), "/no/such");
  EXPECT_EQ(standardizeUserPath("/x/caf\xe9/"), "/x/caf\xe9");
  EXPECT_EQ(standardizeUserPath(""), "");
  EXPECT_EQ(expandTilde("~", "/home/u"), "/home/u");
  EXPECT_EQ(expandTilde("~/Downloads", "/home/u"), "/home/u/Downloads");
  EXPECT_EQ(expandTilde("/tmp/~x", "/home/u"), "/tmp/~x");
  // Names and parents; inside means below the folder followed by "/".
  EXPECT_EQ(displayNameForPath("/"), "/");
  EXPECT_EQ(displayNameForPath("/a/b/"), "b");
  EXPECT_EQ(displayNameForPath("/a/b"), "b");
  EXPECT_EQ(parentPath("/a"), "/");
  EXPECT_EQ(parentPath("/a/b"), "/a");
  EXPECT_EQ(appendPathComponent("/", "x"), "/x");
  EXPECT_TRUE(isInside("/a/b", "/a"));
  EXPECT_TRUE(isInside("/x", "/"));
  EXPECT_FALSE(isInside("/ab", "/a"));
  EXPECT_FALSE(isInside("/a", "/a"));
  EXPECT_FALSE(isInside("/", "/"));
  EXPECT_TRUE(isSameOrInside("/a", "/a"));
  EXPECT_FALSE(isSameOrInside("/a", ""));
}

// One cache over many paths answers what realpath(3) answers for each, whatever the links on the
// way: to folders (relative, chained, to "/"), dangling, to files, below files, missing parts.
TEST(RealPathCache, AnswersWhatRealpathAnswersForEveryPathOfAPass) {
  test::TempTree tree;
  tree.file("real/a/b/file", 3);
  tree.folder("real/a/empty");
  tree.symlink("real/a", "ln");  // relative link to a folder
  tree.symlink("ln", "chain");   // a link to a link
  tree.symlink("../real/a/b/file", "real/tofile");
  tree.symlink("nowhere", "real/dangling");
  tree.symlink("/", "real/toroot");
  tree.symlink(tree.path("real/a/b"), "real/a/abs");
  std::vector<std::string> paths;
  for (const char* relative :
       {"real/a/b/file", "ln/b/file", "chain/b/file", "chain/b", "ln/empty", "real/tofile",
        "real/tofile/x", "real/a/b/file/x", "real/dangling", "real/dangling/x", "real/missing",
        "real/missing/x", "real/toroot/tmp", "real/a/abs/file", "ln/abs/file"})
    paths.push_back(standardizePath(tree.path(relative)));
  paths.insert(paths.end(), {"/", "/tmp", "/proc/self/cwd"});
  RealPathCache cache;
  for (int pass = 0; pass < 2; ++pass) {  // the second pass answers from remembered folders
    for (const std::string& path : paths) {
      char resolved[PATH_MAX];
      const char* expected = ::realpath(path.c_str(), resolved);
      const std::optional<std::string> got = cache.resolve(path);
      ASSERT_EQ(got.has_value(), expected != nullptr) << path;
      if (got) {
        EXPECT_EQ(*got, expected) << path;
      }
    }
  }
}

bool before(std::string_view a, std::string_view b) {
  return naturalCompare(a, b) < 0;
}

TEST(NaturalOrder, DigitsCompareAsNumbersAndLettersIgnoreCaseAndAccentsUntilTheTieBreak) {
  const std::pair<const char*, const char*> ordered[] = {
      {"f2.txt", "f10.txt"},
      {"file 9", "file 10"},
      {"v1.2", "v1.10"},
      {"9", "10"},  // numbers
      {"x99999999999999999999999", "x100000000000000000000000"},
      {"apple", "Banana"},
      {"Apple", "banana"},
      {"écrire", "fable"},
      {"Ünïcode a", "unicode b"}};
  for (const auto& [a, b] : ordered) EXPECT_TRUE(before(a, b)) << a << " < " << b;
  // Equal apart from case, or leading zeros: decided on the raw bytes, never equal.
  EXPECT_NE(naturalCompare("Readme", "README"), 0);
  EXPECT_EQ(naturalCompare("Readme", "README"), -naturalCompare("README", "Readme"));
  EXPECT_NE(naturalCompare("f01", "f1"), 0);
  EXPECT_EQ(naturalCompare("same", "same"), 0);
}

TEST(NaturalOrder, IsAStrictWeakOrderOverMixedAndInvalidNamesAndWildcardsMatchWholeNames) {
  std::vector<std::string> names = {"f10",         "F2",      "f2",   "é",     "e",     "E",
                                    "bad\xff\xfe", "bad\xff", "a1b2", "a01b2", "a1b10", "x",
                                    "x0",          "x00",     "~",    "_",     "Z"};
  names.insert(names.end(), {"", "\xc3", "Ünïcode ƒile 3.txt"});
  for (const auto& a : names) {
    EXPECT_EQ(naturalCompare(a, a), 0);
    for (const auto& b : names) {
      EXPECT_EQ(naturalCompare(a, b) < 0, naturalCompare(b, a) > 0) << a << " / " << b;
      for (const auto& c : names)
        EXPECT_TRUE(!before(a, b) || !before(b, c) || before(a, c)) << a << " " << b << " " << c;
    }
  }
  std::sort(names.begin(), names.end(), before);  // must not misbehave
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end(), before));
  // Wildcards match whole names without regard to case or accents.
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"*.log", "c.LOG", true},   {"*.log", "c.LOG.old", false},  // whole names, any case
      {"cafe", "Café", true},     {"CAFÉ*", "cafe au lait", true},  {"?.txt", "é.txt", true},
      {"?.txt", "ab.txt", false}, {"a*b*c", "aXXbYYbc", true},      {"*", "", true},
      {"a", "", false},           {"bad*", "bad\xff\xfename", true}};
  for (const auto& [pattern, name, matches] : cases)
    EXPECT_EQ(WildcardPattern(pattern).matches(name), matches) << pattern << " ~ " << name;
}

}  // namespace
}  // namespace tw
