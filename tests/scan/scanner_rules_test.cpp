// Whole-disk rules, run on a temporary folder that plays "/" of a system disk.
#include <gtest/gtest.h>

#include "scan/directory_scanner.h"
#include "scan/issue_recorder.h"
#include "support/scan_trees.h"
#include "support/temp_tree.h"
#include "support/test_volume_layout.h"

namespace tw {
namespace {

using test::allocatedSize;
using test::child;
using test::find;
using test::Names;
using test::scanTree;
using test::TempTree;
using test::TestVolumeLayout;

constexpr uint64_t kMB = 1000 * 1000;

class SystemDisk : public ::testing::Test {
 protected:
  ScanResult scan() { return scanTree(t.root(), layout); }
  uint64_t size(const char* relative) { return allocatedSize(t.path(relative)); }

  TempTree t;
  std::shared_ptr<TestVolumeLayout> layout = std::make_shared<TestVolumeLayout>(t.root());
};

TEST_F(SystemDisk, SmallFilesAreGroupedPerFolderAndHiddenSpaceFillsTheUsedSpace) {
  layout->protectedPaths.clear();
  for (const char* name : {"a.txt", "b.txt", "c.txt"}) t.file(std::string("Users/u/") + name, 1000);
  t.file("Users/u/movie.mov", 10 * kMB);
  t.file("Users/u/.DS_Store", 6000);
  t.file("Users/u/empty", 0);
  layout->volume.totalCapacity = 500 * kMB;
  layout->volume.availableCapacity = 100 * kMB;
  layout->volume.availableForImportantUsage = 3;  // raised to the available capacity
  ScanResult r = scan();
  ASSERT_TRUE(r.root);
  ScanNode* u = find(r.root.get(), "Users/u");
  ASSERT_NE(u, nullptr);
  // ".DS_Store" files keep their own node; the group has no children and the folder's path.
  EXPECT_EQ(test::childNames(u),
            (Names{"movie.mov", ".DS_Store", std::string(kSmallerObjectsName)}));
  ScanNode* group = child(u, kSmallerObjectsName);
  EXPECT_EQ(group->size(), 3 * size("Users/u/a.txt"));
  EXPECT_TRUE(group->children().empty());
  EXPECT_EQ(group->path(), t.path("Users/u"));
  EXPECT_EQ(u->size(), group->size() + size("Users/u/movie.mov") + size("Users/u/.DS_Store"));
  EXPECT_EQ(r.statistics.itemsVisited, 8u);  // Users, u and six files, the empty one included

  EXPECT_TRUE(r.root->isVolumeRoot());
  EXPECT_EQ(r.root->name(), "Test Disk");
  EXPECT_EQ(r.root->path(), t.root());
  EXPECT_EQ(r.root->volumeFreeSpace(), 100 * kMB);
  EXPECT_EQ(r.root->volumeAvailableSpace(), 100 * kMB);
  EXPECT_EQ(r.root->sourceFingerprint(), 0u);
  EXPECT_EQ(r.root->sourceItemCount(), 0);
  ScanNode* hidden = r.root->children().back();
  EXPECT_EQ(hidden->name(), kHiddenSpaceName);
  EXPECT_TRUE(hidden->isVirtualNode() && !hidden->isDirectory());
  EXPECT_EQ(hidden->size(), 400 * kMB - find(r.root.get(), "Users")->size());
  EXPECT_EQ(r.root->size(), 400 * kMB);

  // More counted than used: no hidden space, and the root still shows the used space.
  layout->volume.totalCapacity = 2 * kMB;
  layout->volume.availableCapacity = 1 * kMB;
  r = scan();
  EXPECT_EQ(child(r.root.get(), kHiddenSpaceName), nullptr);
  EXPECT_EQ(r.root->size(), 1 * kMB);
}

TEST_F(SystemDisk, CloneFamilyIsChargedOnceOnADiskPreferablyInsideApplicationsNeverGrouped) {
  layout->protectedPaths.clear();
  // (path, size, clone family, reference count)
  const std::tuple<const char*, uint64_t, uint64_t, uint32_t> files[] = {
      {"Applications/Tool/tool.bin", 6 * kMB, 11, 2},
      {"Downloads/copy.bin", 6 * kMB, 11, 2},
      {"Work/a/first.bin", 6 * kMB, 22, 2},
      {"Work/b/second.bin", 6 * kMB, 22, 2},
      {"Users/a.bin", 1000, 9, 2},
      {"Users/b.bin", 1000, 9, 2},
      {"Work/small.bin", 1000, 6, 1}};  // one reference without the shares-all flag: no clone
  for (const auto& [path, bytes, family, references] : files)
    layout->makeClone(t.file(path, bytes), family, references);
  ScanResult r = scan();
  ScanNode* inApps = find(r.root.get(), "Applications/Tool/tool.bin");
  ScanNode* outside = find(r.root.get(), "Downloads/copy.bin");
  ASSERT_TRUE(inApps && outside);
  EXPECT_TRUE(inApps->isAPFSClone() && !inApps->isCloneAllocationElsewhere());
  EXPECT_EQ(inApps->size(), size("Applications/Tool/tool.bin"));
  EXPECT_TRUE(outside->isAPFSClone() && outside->isCloneAllocationElsewhere());
  EXPECT_EQ(outside->size(), 0u);
  EXPECT_EQ(outside->cloneSharedSize(), size("Downloads/copy.bin"));
  // Outside the applications, exactly one member of a family carries the size.
  ScanNode* first = find(r.root.get(), "Work/a/first.bin");
  ScanNode* second = find(r.root.get(), "Work/b/second.bin");
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->size() + second->size(), size("Work/a/first.bin"));
  EXPECT_NE(first->isCloneAllocationElsewhere(), second->isCloneAllocationElsewhere());
  EXPECT_EQ(first->cloneSharedSize(), size("Work/a/first.bin"));
  EXPECT_EQ(second->cloneSharedSize(), size("Work/b/second.bin"));
  // Small clones stay out of "smaller objects…": one charged, one elsewhere with size 0.
  ScanNode* users = find(r.root.get(), "Users");
  EXPECT_EQ(test::childNames(users).size(), 2u);
  EXPECT_EQ(child(users, kSmallerObjectsName), nullptr);
  EXPECT_EQ(users->size(), size("Users/a.bin"));

  // A folder scan keeps every clone at full size.
  r = scanTree(t.path("Work"), layout);
  ASSERT_FALSE(r.root->isVolumeRoot());
  for (const char* path : {"a/first.bin", "b/second.bin"}) {
    ScanNode* n = find(r.root.get(), path);
    ASSERT_NE(n, nullptr);
    EXPECT_TRUE(n->isAPFSClone() && !n->isCloneAllocationElsewhere());
    EXPECT_EQ(n->size(), size("Work/a/first.bin"));
    EXPECT_EQ(n->cloneSharedSize(), n->size());
  }
  EXPECT_FALSE(child(r.root.get(), "small.bin")->isAPFSClone());
}

TEST_F(SystemDisk,
       DataVolumeAndOtherDisksLeftOutSystemVolumesMeasuredEmptyProtectedPlacesReported) {
  t.file("System/Volumes/Data/Users/u/twice.bin", 8 * kMB);  // reached through its firmlinks
  t.file("Volumes/External/film.mov", 8 * kMB);
  const uint64_t swap = allocatedSize(t.file("System/Volumes/VM/swapfile0", 6 * kMB));
  const uint64_t preboot = allocatedSize(t.file("System/Volumes/Preboot/boot.efi", 6 * kMB));
  const uint64_t kept = allocatedSize(t.file("System/Library/kept.bin", 8 * kMB));
  t.folder("Library/Caches");
  t.file("private/var/db.bin", 8 * kMB);
  layout->systemVolumes = {
      {t.path("System/Volumes/VM"), swap + 50 * kMB},
      {t.path("System/Volumes/Preboot"), 1},            // below what was counted: unchanged
      {t.path("System/Volumes/Update"), 30 * kMB},      // not walked: made under its folder
      {t.path("System/Volumes/Data"), 900 * kMB},       // the firmlinked data volume: ignored
      {t.path("System/Volumes/Data/home"), 900 * kMB},  // below it: ignored
      {t.path("Volumes/Stick"), 900 * kMB},             // not a system volume
      {t.path("System/Volumes/Empty"), 0},              // nothing used: skipped
  };
  ScanResult r = scan();
  EXPECT_EQ(find(r.root.get(), "System/Volumes/Data"), nullptr);
  EXPECT_EQ(find(r.root.get(), "Volumes"), nullptr);
  EXPECT_EQ(find(r.root.get(), "System/Volumes/Empty"), nullptr);
  ScanNode* vm = find(r.root.get(), "System/Volumes/VM");
  ASSERT_NE(vm, nullptr);
  EXPECT_EQ(vm->size(), swap + 50 * kMB);
  ScanNode* other = child(vm, kOtherSystemDataName);
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(other->isAggregate() && !other->isDirectory());
  EXPECT_EQ(other->size(), 50 * kMB);
  EXPECT_EQ(other->path(), t.path("System/Volumes/VM"));
  ScanNode* update = find(r.root.get(), "System/Volumes/Update");
  ASSERT_NE(update, nullptr);
  EXPECT_TRUE(update->isDirectory());
  EXPECT_EQ(update->size(), 30 * kMB);
  EXPECT_EQ(update->path(), t.path("System/Volumes/Update"));
  EXPECT_EQ(find(r.root.get(), "System/Volumes/Preboot")->size(), preboot);
  // Raised sizes reach every ancestor.
  EXPECT_EQ(find(r.root.get(), "System")->size(), swap + 50 * kMB + 30 * kMB + preboot + kept);
  // "/Library" measures empty, "/private" does not.
  EXPECT_EQ(r.root->scanIssues(),
            (std::vector<ScanIssue>{{t.path("Library"), kProtectedLocationMessage}}));

  // The same folder scanned as an ordinary folder keeps everything, and has no protected places.
  layout->systemDisk = false;
  r = scan();
  EXPECT_NE(find(r.root.get(), "Volumes"), nullptr);
  EXPECT_NE(find(r.root.get(), "System/Volumes/Data"), nullptr);
  EXPECT_TRUE(r.root->scanIssues().empty());
}

TEST(IssueRecorder, KeepsFiveHundredDistinctIssuesInOrder) {
  IssueRecorder recorder("/root");
  const Error denied = posixError(EACCES);
  recorder.record("/root/a", &denied);
  recorder.record("/root/a", &denied);  // the same text twice is recorded once
  recorder.record("", nullptr);         // the root, with the fallback message
  const Error blank{kScanErrorDomain, 1, ""};
  recorder.record("/root/b", &blank);
  for (int i = 0; recorder.size() < 500; ++i)
    recorder.record("/root/f" + std::to_string(i), &denied);
  recorder.record("/root/the-501st", &denied);
  std::vector<ScanIssue> issues = recorder.take();
  ASSERT_EQ(issues.size(), 500u);
  EXPECT_EQ(issues[0], (ScanIssue{"/root/a", "Permission denied"}));
  EXPECT_EQ(issues[1], (ScanIssue{"/root", "The item could not be read."}));
  EXPECT_EQ(issues[2], (ScanIssue{"/root/b", "The item could not be read."}));
  EXPECT_EQ(issues.back().path, "/root/f496");
}

}  // namespace
}  // namespace tw
