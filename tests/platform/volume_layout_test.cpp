// The system's volume layout and package names.
#include "platform/volume_layout.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>

#include "platform/mounted_disks.h"

namespace tw {
namespace {

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
  EXPECT_TRUE(layout->systemRoot().empty());
  EXPECT_TRUE(layout->protectedLocations().empty());
  EXPECT_TRUE(layout->mountedSystemVolumes().empty());
  // proc is a mount of no disk.
  EXPECT_FALSE(layout->volumeForPath("/proc/self").has_value());
  // Without its mountinfo line the root still gets the wording's name.
  const std::string chroot = withoutRootLine(mountinfo);
  EXPECT_EQ(makeLinuxVolumeLayout([&] { return chroot; })->volumeForPath("/")->name, "Root Disk");
}

TEST(Packages, BundleExtensionsNeedAStemAndIgnoreCase) {
  for (const char* name : {"Safari.app", "Thing.FRAMEWORK", "x.photoslibrary"})
    EXPECT_TRUE(isPackageName(name)) << name;
  for (const char* name : {".app", "app", "Build.xcarchive", "notes.apps"})
    EXPECT_FALSE(isPackageName(name)) << name;
}

}  // namespace
}  // namespace tw
