// The overview's state driven through its real scanners, freshness checks and preferences.
#include "overview/overview_controller.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <QSettings>
#include <filesystem>

#include "overview_test_support.h"
#include "services/preferences.h"

namespace tw {
namespace {

using test::makeController;
using test::OverviewEnvironment;
using test::Recorder;
using test::waitUntil;

class OverviewControllerTest : public ::testing::Test {
 protected:
  OverviewEnvironment env;
  Recorder recorder;

  // A folder of `files` small files.
  std::string makeFolder(const std::string& name, int files = 3) {
    const std::string folder = env.tree.folder(name);
    for (int i = 0; i < files; ++i)
      env.tree.file(name + "/f" + std::to_string(i), files > 10 ? 0 : 4096);
    return folder;
  }
};

TEST_F(OverviewControllerTest, OverlappingScansStoreTheirResultsAndReportOneBatch) {
  auto c = makeController(recorder);
  const std::string a = makeFolder("a"), b = makeFolder("b");
  int cleared = 0;
  QObject::connect(c.get(), &OverviewController::dockProgressCleared, [&] { ++cleared; });
  c->scanURL(a);
  c->scanURL(a);  // already scanning: nothing happens
  EXPECT_EQ(c->runningScanCount(), 1u);
  EXPECT_EQ(c->rowForPath(a)->statusText, "Scanning…");
  EXPECT_EQ(c->rowForPath(a)->primaryTitle, "Cancel");
  c->scanURL(b);
  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
  EXPECT_EQ(recorder.began, 1);
  EXPECT_EQ(recorder.ended, std::vector<bool>{true});
  ASSERT_EQ(recorder.completed.size(), 2u);
  EXPECT_EQ(recorder.statuses,
            (QStringList{"1 scan running in background", "2 scans running in background",
                         "1 scan running in background", ""}));
  EXPECT_EQ(cleared, 1);
  EXPECT_EQ(c->cachedRoot(), recorder.completed.back());
  for (const std::string& folder : {a, b}) {
    const ScanNodeRef result = c->resultForPath(folder);
    ASSERT_TRUE(result);
    EXPECT_GE(result->size(), 3u * 4096);  // allocated bytes of three files
    EXPECT_EQ(c->rowForPath(folder)->statusText, "local folder");
    EXPECT_EQ(c->rowForPath(folder)->primaryTitle, "View");
  }
  EXPECT_EQ(c->rowForPath(a)->accessibleName, "a, View");
  EXPECT_EQ(c->knownFolderPaths(), (std::vector<std::string>{a, b}));
}

TEST_F(OverviewControllerTest, ReplacedResultIsFreedOffTheGuiThread) {
  recorder.keepBackgroundWork = true;
  auto c = makeController(recorder);
  const std::string folder = makeFolder("twice");
  c->scanURL(folder);
  ASSERT_TRUE(waitUntil([&] { return recorder.ended.size() == 1; }));
  std::weak_ptr<ScanNode> first = c->resultForPath(folder);
  recorder.completed.clear();
  c->scanURL(folder);
  ASSERT_TRUE(waitUntil([&] { return recorder.ended.size() == 2; }));
  EXPECT_NE(c->resultForPath(folder), first.lock());
  EXPECT_FALSE(first.expired());  // only the background work still holds the old tree
  for (auto& work : recorder.backgroundWork) work();
  EXPECT_TRUE(first.expired());
}

TEST_F(OverviewControllerTest, ProgressNeverMovesBackwardsAndStopsShortOfFull) {
  const std::string disk = makeFolder("disk");
  OverviewDisk d{disk, "Data", 2000000, 1000000, 1000000, true, true};
  auto c = makeController(recorder, {d});
  c->scanURL(disk);
  OverviewControllerTestAccess::progress(*c, disk, 0.6);
  OverviewControllerTestAccess::progress(*c, disk, 0.4);
  EXPECT_DOUBLE_EQ(c->scanProgress(disk), 0.6);
  EXPECT_DOUBLE_EQ(c->rowForPath(disk)->barValue, 0.6);
  OverviewControllerTestAccess::progress(*c, disk, -1);
  EXPECT_DOUBLE_EQ(c->scanProgress(disk), 0.6);
  OverviewControllerTestAccess::progress(*c, disk, 1.0);
  EXPECT_DOUBLE_EQ(c->scanProgress(disk), 0.995);
  EXPECT_DOUBLE_EQ(c->averageProgress(), 0.995);

  // A completion from a scanner that is no longer the location's changes nothing.
  OverviewControllerTestAccess::staleCompletion(*c, disk, ScanNode::makeRoot(disk, true));
  EXPECT_TRUE(c->isScanning(disk));
  EXPECT_FALSE(c->resultForPath(disk));
  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
  EXPECT_EQ(recorder.completed.size(), 1u);
  EXPECT_EQ(c->rowForPath(disk)->primaryTitle, "View");
}

TEST_F(OverviewControllerTest, CancelOrADeletedFolderEndsTheScanCleanly) {
  auto c = makeController(recorder);
  const std::string doomed = makeFolder("doomed", 50), a = makeFolder("many"),
                    b = makeFolder("more");
  recorder.holdWalks->store(true);
  c->scanURL(doomed);
  std::filesystem::remove_all(doomed);
  recorder.holdWalks->store(false);
  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
  EXPECT_EQ(recorder.ended.size(), 1u);
  EXPECT_EQ(c->runningScanCount(), 0u);
  EXPECT_FALSE(c->rowForPath(doomed)->scanning);

  recorder.ended.clear();
  recorder.completed.clear();
  recorder.holdWalks->store(true);
  c->scanURL(a);
  c->scanURL(b);
  c->cancelScan();
  recorder.holdWalks->store(false);
  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
  EXPECT_EQ(recorder.ended, std::vector<bool>{false});
  EXPECT_TRUE(recorder.completed.empty());
  EXPECT_EQ(c->statusText(), "Scan cancelled");
  EXPECT_EQ(c->runningScanCount(), 0u);
  EXPECT_EQ(c->rowForPath(a)->primaryTitle, "Scan");
}

TEST_F(OverviewControllerTest, DiskUnmountedWhileScanningEndsTheScan) {
  if (!test::canMount())
    GTEST_SKIP() << "mounting is not allowed here (needs root with CAP_SYS_ADMIN)";
  const std::string mountPoint = env.tree.folder("stick");
  test::MountGuard mounts;
  ASSERT_TRUE(mounts.mount("tarnwell-test", mountPoint, "tmpfs", 0, "size=16m"));
  for (int i = 0; i < 200; ++i) env.tree.file("stick/f" + std::to_string(i), 4096);
  OverviewDisk disk{mountPoint, "stick", 16 << 20, 8 << 20, 8 << 20, false, true};
  auto c = makeController(recorder, {disk}, [](const std::string&) { return true; });

  recorder.holdWalks->store(true);
  c->scanURL(mountPoint);
  ASSERT_TRUE(c->isScanning(mountPoint));
  ASSERT_EQ(::umount2(mountPoint.c_str(), MNT_DETACH), 0);
  recorder.holdWalks->store(false);

  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
  EXPECT_EQ(recorder.ended.size(), 1u);
  EXPECT_EQ(c->runningScanCount(), 0u);
  EXPECT_FALSE(c->rowForPath(mountPoint)->scanning);
  EXPECT_NE(c->statusText(), "1 scan running in background");
}

TEST_F(OverviewControllerTest, FreshnessCheckTrustsAnUnchangedFolderAndFlagsAnAddedFile) {
  auto c = makeController(recorder);
  const std::string folder = makeFolder("photos");
  c->scanURL(folder);
  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
  const ScanNodeRef root = c->resultForPath(folder);

  std::optional<std::pair<bool, bool>> answer;
  c->validateCachedFolderRoot(
      root, [&](bool changed, bool checked) { answer = std::make_pair(changed, checked); });
  EXPECT_EQ(c->rowForPath(folder)->statusText, "checking for changes…");
  ASSERT_TRUE(waitUntil([&] { return answer.has_value(); }));
  EXPECT_EQ(*answer, std::make_pair(false, true));
  EXPECT_FALSE(c->isStale(folder));
  EXPECT_TRUE(c->lastFreshnessCheck(folder).has_value());

  // Viewing a trusted result opens it after the check; the button waits meanwhile.
  c->primaryAction(folder);
  EXPECT_EQ(c->rowForPath(folder)->primaryTitle, "Checking…");
  EXPECT_FALSE(c->rowForPath(folder)->primaryEnabled);
  ASSERT_TRUE(waitUntil([&] { return !recorder.shown.empty(); }));
  EXPECT_EQ(recorder.shown[0], root);

  env.tree.file("photos/new", 0);
  answer.reset();
  c->validateCachedFolderRoot(
      root, [&](bool changed, bool checked) { answer = std::make_pair(changed, checked); });
  ASSERT_TRUE(waitUntil([&] { return answer.has_value(); }));
  EXPECT_EQ(*answer, std::make_pair(true, true));
  EXPECT_TRUE(c->isStale(folder));
  EXPECT_EQ(c->rowForPath(folder)->statusText, "Rescan recommended");
  EXPECT_EQ(c->rowForPath(folder)->status, FolderStatus::kRescanRecommended);

  // A stale result offers the changed-folder choice at once.
  c->primaryAction(folder);
  EXPECT_EQ(recorder.changedChoices, std::vector<std::string>{folder});
}

TEST_F(OverviewControllerTest, RestoreKeepsTheNewerResultAndSkipsRemovedPaths) {
  auto c = makeController(recorder);
  const std::string kept = makeFolder("kept"), gone = makeFolder("gone");
  c->setRemovedFromOverview(gone, true);
  auto root = [](const std::string& path, double date) {
    ScanNodeRef r = ScanNode::makeRoot(path, true);
    r->setScanDate(date);
    return r;
  };
  const ScanNodeRef newer = root(kept, 2000), older = root(kept, 1000);
  c->restoreCachedScanRoots({newer, older, root(gone, 3000)});
  EXPECT_EQ(c->resultForPath(kept), newer);
  EXPECT_FALSE(c->resultForPath(gone));
  EXPECT_EQ(c->rowForPath(gone), nullptr);
  c->restoreCachedScanRoots({older});
  EXPECT_EQ(c->resultForPath(kept), newer);
  EXPECT_EQ(c->knownFolderPaths(), std::vector<std::string>{kept});
  ASSERT_TRUE(waitUntil([&] { return !c->isChecking(kept); }));
}

TEST_F(OverviewControllerTest, FavouritesComeFirstAndNonUtf8PathsSurviveTheNextStart) {
  const std::string odd = "/data/caf\xe9 %41";
  {
    auto c = makeController(recorder);
    for (const std::string& path : {std::string("/data/a"), odd, std::string("/data/c")})
      c->addFolder(path);
    c->toggleFavorite(odd);
    std::vector<std::string> order;
    for (const OverviewRow& row : c->rows()) order.push_back(row.path);
    EXPECT_EQ(order, (std::vector<std::string>{odd, "/data/a", "/data/c"}));
    EXPECT_TRUE(c->rowForPath(odd)->favorite);
    c->addFolder("/data/a/");  // listed once
    ASSERT_EQ(recorder.alerts.size(), 1u);
    EXPECT_EQ(recorder.alerts[0].first,
              "\u201C"
              "a\u201D is already added");
  }
  auto again = makeController(recorder);
  EXPECT_EQ(again->knownFolderPaths(), (std::vector<std::string>{"/data/a", odd, "/data/c"}));
  EXPECT_EQ(again->favoriteFolderPaths(), std::vector<std::string>{odd});
  EXPECT_NE(again->rowForPath(odd), nullptr);
}

TEST_F(OverviewControllerTest, RemoveFailureLeavesThePreferencesAlone) {
  auto c = makeController(recorder);
  c->addFolder("/data/keep");
  c->toggleFavorite("/data/keep");
  recorder.removeError = Error{kPOSIXErrorDomain, 13, "Permission denied"};
  c->removeLocation("/data/keep");
  ASSERT_EQ(recorder.alerts.size(), 1u);
  EXPECT_EQ(recorder.alerts[0].first, "Unable to Remove keep");
  EXPECT_EQ(c->knownFolderPaths(), std::vector<std::string>{"/data/keep"});
  EXPECT_EQ(c->favoriteFolderPaths(), std::vector<std::string>{"/data/keep"});
  EXPECT_TRUE(c->removedOverviewPaths().empty());

  recorder.removeError.reset();
  c->removeLocation("/data/keep");
  EXPECT_TRUE(c->knownFolderPaths().empty());
  EXPECT_TRUE(c->favoriteFolderPaths().empty());
  EXPECT_EQ(c->removedOverviewPaths(), std::vector<std::string>{"/data/keep"});
  EXPECT_EQ(c->rowForPath("/data/keep"), nullptr);
  c->addFolder("/data/keep");  // adding again brings the row back
  EXPECT_NE(c->rowForPath("/data/keep"), nullptr);
  EXPECT_TRUE(c->removedOverviewPaths().empty());
}

TEST_F(OverviewControllerTest, DiskFiguresSwitchFromMegabytesToGigabytesAtOneBillion) {
  EXPECT_EQ(formatDiskFigure(999999999, 999999999), "1,000.0 MB");
  EXPECT_EQ(formatDiskFigure(1000000000, 1000000000), "1.0 GB");
  EXPECT_EQ(formatDiskFigure(1234567890123, 2000000000000), "1,234.6 GB");
  OverviewDisk small{"/media/stick", "", 999999999, 499999999, 0, false, true};
  OverviewDisk big{"/", "", 1000000000, 250000000, 300000000, true, true};
  EXPECT_EQ(diskAvailableBytes(big), 300000000u);  // the important-usage figure when in range
  auto c = makeController(recorder, {big, small});
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
  bool readable = false;
  auto c = makeController(
      recorder,
      {{mine, "data", 1000, 500, 0, true, true}, {other, "other", 1000, 500, 0, true, true}},
      [&](const std::string& path) { return path != mine || readable; });
  EXPECT_EQ(c->rowForPath(mine)->primaryTitle, "Unlock");
  c->scanURL(mine);  // no access: the unlock flow instead of a scan
  EXPECT_FALSE(c->isScanning(mine));
  EXPECT_EQ(recorder.unlockRequests, std::vector<std::string>{mine});
  EXPECT_EQ(recorder.revealed, std::vector<std::string>{mine});

  EXPECT_EQ(c->acceptDroppedVolume(other + "/x"), UnlockOutcome::kDifferentDisk);
  EXPECT_EQ(recorder.alerts.back(),
            std::make_pair(QString("That is a different disk"),
                           QString("Drag data from the Files window onto the target.")));
  EXPECT_EQ(c->acceptDroppedVolume(mine + "/inside"), UnlockOutcome::kNotGranted);
  EXPECT_EQ(recorder.alerts.back().first, "Unable to Unlock Disk");
  EXPECT_EQ(c->unlockingDiskPath(), mine);

  readable = true;
  EXPECT_EQ(c->acceptDroppedVolume(mine), UnlockOutcome::kUnlocked);
  EXPECT_TRUE(c->unlockingDiskPath().empty());
  EXPECT_TRUE(c->isScanning(mine));
  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
}

TEST_F(OverviewControllerTest, DroppedItemsAddFoldersAndBeepForFiles) {
  const std::string disk = env.tree.folder("mnt/usb");
  auto c = makeController(recorder, {{disk, "usb", 1000, 500, 0, false, false}});
  c->scanDroppedURL(env.tree.file("loose.txt", 10));
  EXPECT_EQ(recorder.beeps, 1);
  const std::string folder = makeFolder("dropped");
  c->scanDroppedURL(folder);
  ASSERT_NE(c->rowForPath(folder), nullptr);
  EXPECT_FALSE(c->isScanning(folder));  // a dropped folder is added, not scanned
  c->scanDroppedURL(disk);              // a disk without a row gets one and its scan starts
  ASSERT_NE(c->rowForPath(disk), nullptr);
  EXPECT_TRUE(c->isScanning(disk));
  ASSERT_TRUE(waitUntil([&] { return !recorder.ended.empty(); }));
  EXPECT_TRUE(c->rowForPath(disk)->hasResult);
}

}  // namespace
}  // namespace tw
