// The overview's state driven through its real scanners, freshness checks and preferences.
#include "overview/overview_controller.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>

#include "overview_test_support.h"

namespace tw {
namespace {

using Access = OverviewControllerTestAccess;
using Alert = std::pair<QString, QString>;
using Paths = std::vector<std::string>;
using OverviewControllerTest = test::OverviewWorld;

TEST_F(OverviewControllerTest, OverlappingScansStoreTheirResultsReportOneBatchAndFreeOffThread) {
  keepBackgroundWork = true;
  auto c = makeController();
  const std::string a = makeFolder("a"), b = makeFolder("b");
  int cleared = 0;
  QObject::connect(c.get(), &OverviewController::dockProgressCleared, [&] { ++cleared; });
  c->scanURL(a);
  c->scanURL(a);  // already scanning: nothing happens
  EXPECT_EQ(c->runningScanCount(), 1u);
  EXPECT_EQ(c->rowForPath(a)->statusText, "Scanning…");
  EXPECT_EQ(c->rowForPath(a)->primaryTitle, "Cancel");
  c->scanURL(b);
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
  EXPECT_EQ(began, 1);
  EXPECT_EQ(ended, std::vector<bool>{true});
  ASSERT_EQ(completed.size(), 2u);
  EXPECT_EQ(statuses, (QStringList{"1 scan running in background", "2 scans running in background",
                                   "1 scan running in background", ""}));
  EXPECT_EQ(cleared, 1);
  EXPECT_EQ(c->cachedRoot(), completed.back());
  for (const std::string& folder : {a, b}) {
    ASSERT_TRUE(c->resultForPath(folder));
    EXPECT_GE(c->resultForPath(folder)->size(), 3u * 4096);  // allocated bytes of three files
    EXPECT_EQ(c->rowForPath(folder)->statusText, "local folder");
  }
  EXPECT_EQ(c->rowForPath(a)->accessibleName, "a, View");
  EXPECT_EQ(c->knownFolderPaths(), (Paths{a, b}));

  // A replaced result is freed by the background work, never on the GUI thread.
  std::weak_ptr<ScanNode> first = c->resultForPath(a);
  completed.clear();
  c->scanURL(a);
  ASSERT_TRUE(waitUntil([&] { return ended.size() == 2; }));
  EXPECT_NE(c->resultForPath(a), first.lock());
  EXPECT_FALSE(first.expired());
  for (auto& work : backgroundWork) work();
  EXPECT_TRUE(first.expired());
}

TEST_F(OverviewControllerTest, DiskProgressNeverMovesBackAndTheRowRereadsItsSpaceAfterTheScan) {
  const std::string disk = makeFolder("disk");
  disks = {{disk, "Data", 900000000, 500000000, 500000000, true, true}};
  auto c = makeController();
  EXPECT_EQ(c->rowForPath(disk)->freeText, "500.0 MB free");
  c->scanURL(disk);
  for (double fraction : {0.6, 0.4, -1.0}) Access::progress(*c, disk, fraction);
  EXPECT_DOUBLE_EQ(c->scanProgress(disk), 0.6);
  EXPECT_DOUBLE_EQ(c->rowForPath(disk)->barValue, 0.6);
  Access::progress(*c, disk, 1.0);
  EXPECT_DOUBLE_EQ(c->averageProgress(), 0.995);  // never full before the result exists

  // A completion from a scanner that is no longer the location's changes nothing.
  Access::staleCompletion(*c, disk, ScanNode::makeRoot(disk, true));
  EXPECT_TRUE(c->isScanning(disk));
  EXPECT_FALSE(c->resultForPath(disk));
  disks[0].availableCapacity = disks[0].availableForImportantUsage = 497000000;  // 3 MB written
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
  EXPECT_EQ(completed.size(), 1u);
  const OverviewRow& row = *c->rowForPath(disk);
  EXPECT_EQ(row.primaryTitle, "View");
  EXPECT_EQ(row.freeText, "497.0 MB free");
  EXPECT_EQ(row.usedText, "403.0 MB used");
}

TEST_F(OverviewControllerTest, CancelADeletedFolderOrAnUnmountedDiskEndsTheScanCleanly) {
  auto c = makeController();
  const std::string doomed = makeFolder("doomed", 50), a = makeFolder("many"), b = makeFolder("b");
  holdWalks->store(true);
  c->scanURL(doomed);
  std::filesystem::remove_all(doomed);
  holdWalks->store(false);
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
  EXPECT_EQ(c->runningScanCount(), 0u);
  EXPECT_FALSE(c->rowForPath(doomed)->scanning);

  ended.clear();
  completed.clear();
  holdWalks->store(true);
  c->scanURL(a);
  c->scanURL(b);
  c->cancelScan();
  holdWalks->store(false);
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
  EXPECT_EQ(ended, std::vector<bool>{false});
  EXPECT_TRUE(completed.empty());
  EXPECT_EQ(c->statusText(), "Scan cancelled");
  EXPECT_EQ(c->rowForPath(a)->primaryTitle, "Scan");

  if (!test::canMount()) GTEST_SKIP() << "mounting is not allowed here (needs CAP_SYS_ADMIN)";
  const std::string stick = env.tree.folder("stick");
  test::MountGuard mounts;
  ASSERT_TRUE(mounts.mount("tarnwell-test", stick, "tmpfs", 0, "size=16m"));
  for (int i = 0; i < 200; ++i) env.tree.file("stick/f" + std::to_string(i), 4096);
  disks = {{stick, "stick", 16 << 20, 8 << 20, 8 << 20, false, true}};
  c->reloadVolumes();
  ended.clear();
  holdWalks->store(true);
  c->scanURL(stick);
  ASSERT_TRUE(c->isScanning(stick));
  ASSERT_EQ(::umount2(stick.c_str(), MNT_DETACH), 0);
  holdWalks->store(false);
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
  EXPECT_EQ(c->runningScanCount(), 0u);
  EXPECT_FALSE(c->rowForPath(stick)->scanning);
  EXPECT_NE(c->statusText(), "1 scan running in background");
}

TEST_F(OverviewControllerTest, FreshnessCheckTrustsAnUnchangedFolderAndFlagsAnAddedFile) {
  auto c = makeController();
  const std::string folder = makeFolder("photos");
  c->scanURL(folder);
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
  const ScanNodeRef root = c->resultForPath(folder);
  auto check = [&](std::pair<bool, bool> expected) {
    std::optional<std::pair<bool, bool>> answer;
    c->validateCachedFolderRoot(
        root, [&](bool changed, bool checked) { answer = std::make_pair(changed, checked); });
    EXPECT_EQ(c->rowForPath(folder)->statusText, "checking for changes…");
    ASSERT_TRUE(waitUntil([&] { return answer.has_value(); }));
    EXPECT_EQ(*answer, expected);
  };
  check({false, true});
  EXPECT_FALSE(c->isStale(folder));
  EXPECT_TRUE(c->lastFreshnessCheck(folder).has_value());

  // Viewing a trusted result opens it after the check; the button waits meanwhile.
  c->primaryAction(folder);
  EXPECT_EQ(c->rowForPath(folder)->primaryTitle, "Checking…");
  EXPECT_FALSE(c->rowForPath(folder)->primaryEnabled);
  ASSERT_TRUE(waitUntil([&] { return !shown.empty(); }));
  EXPECT_EQ(shown[0], root);

  env.tree.file("photos/new", 0);
  check({true, true});
  EXPECT_TRUE(c->isStale(folder));
  EXPECT_EQ(c->rowForPath(folder)->statusText, "Rescan recommended");
  EXPECT_EQ(c->rowForPath(folder)->status, FolderStatus::kRescanRecommended);
  c->primaryAction(folder);  // a stale result offers the changed-folder choice at once
  EXPECT_EQ(changedChoices, Paths{folder});
}

TEST_F(OverviewControllerTest, RestoreKeepsTheNewerResultAndSkipsRemovedPaths) {
  auto c = makeController();
  const std::string kept = makeFolder("kept"), gone = makeFolder("gone");
  c->setRemovedFromOverview(gone, true);
  auto root = [](const std::string& path, double date) {
    ScanNodeRef r = ScanNode::makeRoot(path, true);
    r->setScanDate(date);
    return r;
  };
  const ScanNodeRef newer = root(kept, 2000), older = root(kept, 1000);
  c->restoreCachedScanRoots({newer, older, root(gone, 3000)});
  c->restoreCachedScanRoots({older});
  EXPECT_EQ(c->resultForPath(kept), newer);
  EXPECT_FALSE(c->resultForPath(gone));
  EXPECT_EQ(c->rowForPath(gone), nullptr);
  EXPECT_EQ(c->knownFolderPaths(), Paths{kept});
  ASSERT_TRUE(waitUntil([&] { return !c->isChecking(kept); }));
}

TEST_F(OverviewControllerTest, FavouritesLeadNonUtf8PathsSurviveARestartAndRemovalAsksTheLibrary) {
  const std::string odd = "/data/caf\xe9 %41";
  {
    auto c = makeController();
    for (const std::string& path : {std::string("/data/a"), odd, std::string("/data/c")})
      c->addFolder(path);
    c->toggleFavorite(odd);
    Paths order;
    for (const OverviewRow& row : c->rows()) order.push_back(row.path);
    EXPECT_EQ(order, (Paths{odd, "/data/a", "/data/c"}));
    EXPECT_TRUE(c->rowForPath(odd)->favorite);
    c->addFolder("/data/a/");  // listed once
    EXPECT_EQ(alerts, (std::vector<Alert>{{"“a” is already added", "Choose a different folder."}}));
  }
  auto c = makeController();
  EXPECT_EQ(c->knownFolderPaths(), (Paths{"/data/a", odd, "/data/c"}));
  EXPECT_EQ(c->favoriteFolderPaths(), Paths{odd});
  EXPECT_NE(c->rowForPath(odd), nullptr);

  // A library that cannot remove the scans leaves the preferences alone.
  removeError = Error{kPOSIXErrorDomain, 13, "Permission denied"};
  c->removeLocation(odd);
  EXPECT_EQ(alerts.back().first, "Unable to Remove caf\ufffd %41");
  EXPECT_EQ(c->favoriteFolderPaths(), Paths{odd});
  EXPECT_TRUE(c->removedOverviewPaths().empty());
  removeError.reset();
  c->removeLocation(odd);
  EXPECT_EQ(removeRequests, (Paths{odd, odd}));
  EXPECT_EQ(c->knownFolderPaths(), (Paths{"/data/a", "/data/c"}));
  EXPECT_TRUE(c->favoriteFolderPaths().empty());
  EXPECT_EQ(c->removedOverviewPaths(), Paths{odd});
  EXPECT_EQ(c->rowForPath(odd), nullptr);
  c->addFolder(odd);  // adding again brings the row back
  EXPECT_NE(c->rowForPath(odd), nullptr);
  EXPECT_TRUE(c->removedOverviewPaths().empty());
}

TEST_F(OverviewControllerTest, DiskFiguresSwitchFromMegabytesToGigabytesAtOneBillion) {
  EXPECT_EQ(formatDiskFigure(999999999, 999999999), "1,000.0 MB");
  EXPECT_EQ(formatDiskFigure(1000000000, 1000000000), "1.0 GB");
  EXPECT_EQ(formatDiskFigure(1234567890123, 2000000000000), "1,234.6 GB");
  disks = {{"/", "", 1000000000, 250000000, 300000000, true, true},
           {"/media/stick", "", 999999999, 499999999, 0, false, true}};
  EXPECT_EQ(diskAvailableBytes(disks[0]), 300000000u);  // the important-usage figure when in range
  auto c = makeController();
  ASSERT_EQ(c->rows().size(), 2u);
  const OverviewRow& root = c->rows()[0];
  EXPECT_EQ(root.name, "Root Disk");
  EXPECT_EQ(root.subtitle, "1.0 GB startup disk");
  EXPECT_EQ(root.freeText, "0.3 GB free");
  EXPECT_TRUE(root.usedText.empty());  // shown only with a result
  EXPECT_DOUBLE_EQ(root.barValue, 0.7);
  const OverviewRow& stick = c->rows()[1];
  EXPECT_EQ(stick.name, "stick");
  EXPECT_EQ(stick.subtitle, "1000.0 MB volume");  // the byte-count style rounds up
  EXPECT_EQ(stick.freeText, "500.0 MB free");
}

TEST_F(OverviewControllerTest, UnlockAcceptsOnlyTheExpectedDiskOnceItIsReadable) {
  const std::string mine = env.tree.folder("disks/data"), other = env.tree.folder("disks/other");
  env.tree.file("disks/data/inside", 4096);
  disks = {{mine, "data", 1000, 500, 0, true, true}, {other, "other", 1000, 500, 0, true, true}};
  unreadable = {mine};
  auto c = makeController();
  EXPECT_EQ(c->rowForPath(mine)->primaryTitle, "Unlock");
  c->scanURL(mine);  // no access: the unlock flow instead of a scan
  EXPECT_FALSE(c->isScanning(mine));
  EXPECT_EQ(unlockRequests, Paths{mine});
  EXPECT_EQ(revealed, Paths{mine});
  EXPECT_EQ(c->acceptDroppedVolume(other + "/x"), UnlockOutcome::kDifferentDisk);
  EXPECT_EQ(alerts.back(),
            Alert("That is a different disk", "Drag data from the Files window onto the target."));
  EXPECT_EQ(c->acceptDroppedVolume(mine + "/inside"), UnlockOutcome::kNotGranted);
  EXPECT_EQ(alerts.back().first, "Unable to Unlock Disk");
  EXPECT_EQ(c->unlockingDiskPath(), mine);
  unreadable.clear();
  EXPECT_EQ(c->acceptDroppedVolume(mine), UnlockOutcome::kUnlocked);
  EXPECT_TRUE(c->unlockingDiskPath().empty());
  EXPECT_TRUE(c->isScanning(mine));
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
}

TEST_F(OverviewControllerTest, DroppedOrChosenItemsAddFoldersDisksGetTheirRowFilesBeep) {
  const std::string disk = env.tree.folder("mnt/usb");
  disks = {{disk, "usb", 1000, 500, 0, false, false}};
  auto c = makeController();
  c->scanDroppedURL(env.tree.file("loose.txt", 10));
  EXPECT_EQ(beeps, 1);
  const std::string folder = makeFolder("dropped");
  c->scanDroppedURL(folder);
  ASSERT_NE(c->rowForPath(folder), nullptr);
  EXPECT_FALSE(c->isScanning(folder));  // a dropped folder is added, not scanned
  c->scanDroppedURL(disk);              // a disk without a row gets one and its scan starts
  ASSERT_TRUE(c->rowForPath(disk) && c->rowForPath(disk)->disk);
  EXPECT_TRUE(c->isScanning(disk));
  ASSERT_TRUE(waitUntil([&] { return !ended.empty(); }));
  EXPECT_TRUE(c->rowForPath(disk)->hasResult);
  // "Scan Folder…" on a disk's mount point: it already has its row, and no folder is stored.
  c->addFolder(disk + "/");
  EXPECT_EQ(alerts, (std::vector<Alert>{{"“usb” is already added", "Choose a different folder."}}));
  EXPECT_EQ(c->knownFolderPaths(), Paths{folder});
}

}  // namespace
}  // namespace tw
