// The system's volume layout, package names and clone attributes.
#include "platform/volume_layout.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(LinuxVolumeLayout, RootAndFoldersBelowAMountReportTheirMountWithFigures) {
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
  EXPECT_EQ(layout->volumeForPath("/proc/self").value_or(VolumeInfo{}).mountPath, "/proc");
  EXPECT_FALSE(layout->volumeForPath("/no/such/place").has_value());
}

TEST(Packages, BundleExtensionsNeedAStemAndIgnoreCase) {
  for (const char* name : {"Safari.app", "Thing.FRAMEWORK", "x.photoslibrary"})
    EXPECT_TRUE(isPackageName(name)) << name;
  for (const char* name : {".app", "app", "Build.xcarchive", "notes.apps"})
    EXPECT_FALSE(isPackageName(name)) << name;
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
