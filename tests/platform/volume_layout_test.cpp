#include "platform/volume_layout.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(LinuxVolumeLayout, RootFileSystemIsAVolumeWithFigures) {
  auto layout = makeLinuxVolumeLayout();
  auto volume = layout->volumeForPath("/");
  ASSERT_TRUE(volume.has_value());
  EXPECT_EQ(volume->mountPath, "/");
  EXPECT_FALSE(volume->name.empty());
  EXPECT_GT(volume->totalCapacity, 0u);
  EXPECT_LE(volume->availableCapacity, volume->totalCapacity);
  EXPECT_GE(volume->availableForImportantUsage, volume->availableCapacity);
  EXPECT_TRUE(layout->systemRoot().empty());
  EXPECT_TRUE(layout->protectedLocations().empty());
  EXPECT_TRUE(layout->mountedSystemVolumes().empty());
}

TEST(LinuxVolumeLayout, FolderBelowAMountReportsThatMount) {
  auto volume = makeLinuxVolumeLayout()->volumeForPath("/proc/self");
  ASSERT_TRUE(volume.has_value());
  EXPECT_EQ(volume->mountPath, "/proc");
  EXPECT_FALSE(makeLinuxVolumeLayout()->volumeForPath("/no/such/place").has_value());
}

TEST(Packages, BundleExtensionsNeedAStemAndIgnoreCase) {
  EXPECT_TRUE(isPackageName("Safari.app"));
  EXPECT_TRUE(isPackageName("Thing.FRAMEWORK"));
  EXPECT_TRUE(isPackageName("x.photoslibrary"));
  EXPECT_FALSE(isPackageName(".app"));
  EXPECT_FALSE(isPackageName("app"));
  EXPECT_FALSE(isPackageName("Build.xcarchive"));
  EXPECT_FALSE(isPackageName("notes.apps"));
}

TEST(CloneAttributes, CloneNeedsAnIDAndASharingSign) {
  CloneAttributes a;
  a.device = 16777232;
  a.cloneID = 123456789012ULL;
  EXPECT_FALSE(a.isClone());
  a.referenceCount = 2;
  EXPECT_TRUE(a.isClone());
  EXPECT_EQ(a.key(), "16777232:123456789012");
  a.referenceCount = 1;
  a.extendedFlags = CloneAttributes::kSharesAllBlocks;
  EXPECT_TRUE(a.isClone());
  a.cloneID = 0;
  EXPECT_FALSE(a.isClone());
}

}  // namespace
}  // namespace tw
