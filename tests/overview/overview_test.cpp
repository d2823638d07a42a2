// The Disks and Folders overview driven through its real scanners, freshness checks, preferences
// and widgets (offscreen). One world: a private desktop and controllers over a disk list the test
// edits (the one seam for the system's disks and their access), every handler and signal recorded.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QThread>
#include <QToolButton>
#include <atomic>
#include <filesystem>
#include <set>

#include "overview/disk_sheets.h"
#include "overview/overview_controller.h"
#include "overview/overview_rows.h"
#include "overview/overview_view.h"
#include "overview/usage_bar.h"
#include "platform/file_url.h"
#include "support/desktop_environment.h"

namespace tw {

// Reaches the controller's scanner callbacks, so tests can send progress and stale completions.
struct OverviewControllerTestAccess {
  static void progress(OverviewController& c, const std::string& path, double fraction) {
    if (auto it = c.scanners_.find(path); it != c.scanners_.end())
      c.scanProgressed(path, it->second->token, fraction);
  }
  static void staleCompletion(OverviewController& c, const std::string& path, ScanNodeRef root) {
    c.scanFinished(path, 0, std::move(root), std::nullopt, false);
  }
};

namespace {

class OverviewWorld : public ::testing::Test {
 protected:
  // A controller over `disks`, whose scanners use the system layout on the world's folders.
  std::unique_ptr<OverviewController> makeController() {
    OverviewController::Options o;
    o.disks = [this] { return disks; };
    o.hasDiskAccess = [this](const std::string& path) { return !unreadable.count(path); };
    o.revealDisk = [this](const std::string& path) { revealed.push_back(path); };
    o.scannerOptions = [hold = holdWalks] {
      DirectoryScanner::Options scanner;
      scanner.threads = 1;
      scanner.settings = [hold] {
        while (hold->load()) QThread::msleep(1);
        return ScanSettings{};
      };
      return scanner;
    };
    if (keepBackgroundWork)
      o.backgroundExecutor = [this](auto work) { backgroundWork.push_back(std::move(work)); };
    auto c = std::make_unique<OverviewController>(o);
    c->setHandlers({[this](const ScanNodeRef& root) { shown.push_back(root); },
                    [this](const ScanNodeRef& root) { forgotten.push_back(root); },
                    [this](const std::string& path, auto done) {
                      removeRequests.push_back(path);
                      done(removeError);
                    },
                    [this] { ++began; }, [this](bool done) { ended.push_back(done); },
                    [this](const ScanNodeRef& root) { completed.push_back(root); }});
    using C = OverviewController;
    QObject::connect(c.get(), &C::statusChanged, [this](const QString& text) { statuses << text; });
    QObject::connect(c.get(), &C::alertRequested,
                     [this](const QString& m, const QString& i) { alerts.emplace_back(m, i); });
    QObject::connect(c.get(), &C::changedFolderChoiceRequested,
                     [this](const std::string& p) { changedChoices.push_back(p); });
    QObject::connect(c.get(), &C::unlockRequested,
                     [this](const std::string& p) { unlockRequests.push_back(p); });
    QObject::connect(c.get(), &C::beepRequested, [this] { ++beeps; });
    QObject::connect(c.get(), &C::addHardDiskRequested, [this] { ++addDiskSheets; });
    return c;
  }
  // A folder of `files` files of 4096 bytes in the world.
  std::string makeFolder(const std::string& name, int files = 3) {
    for (int i = 0; i < files; ++i) env.tree.file(name + "/f" + std::to_string(i), 4096);
    return env.tree.folder(name);
  }
  // Runs the event loop until `done` answers true; false when 20 s pass first.
  static bool waitUntil(const std::function<bool()>& done) { return QTest::qWaitFor(done, 20000); }

  test::DesktopEnvironment env;
  // What the system reports, read at every call; mount points in `unreadable` cannot be read.
  std::vector<OverviewDisk> disks;
  std::set<std::string> unreadable;
  // While true, walks wait before they start.
  std::shared_ptr<std::atomic<bool>> holdWalks = std::make_shared<std::atomic<bool>>(false);
  // When set before the controller is made, background work (freeing trees) waits here.
  bool keepBackgroundWork = false;
  std::vector<std::function<void()>> backgroundWork;

  // What the handlers and signals reported.
  int began = 0, beeps = 0, addDiskSheets = 0;
  std::vector<bool> ended;
  std::vector<ScanNodeRef> completed, shown, forgotten;
  std::vector<std::string> removeRequests, changedChoices, unlockRequests, revealed;
  std::optional<Error> removeError;  // what the remove handler answers
  QStringList statuses;
  std::vector<std::pair<QString, QString>> alerts;
};

using Access = OverviewControllerTestAccess;
using Alert = std::pair<QString, QString>;
using Paths = std::vector<std::string>;
using OverviewControllerTest = OverviewWorld;

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

class OverviewViewTest : public OverviewWorld {
 protected:
  OverviewDisk root{"/", "", 2000000000000, 500000000000, 0, true, true};
  OverviewDisk efi{"/boot/efi", "EFI", 500000000, 400000000, 0, true, false};
};

QAbstractButton* button(QMessageBox* box, const QString& text) {
  for (QAbstractButton* b : box->buttons())
    if (b->text() == text) return b;
  return nullptr;
}

TEST_F(OverviewViewTest, RowsShowDiskFiguresFolderStatesAndTheirMenusInOrder) {
  disks = {root};
  auto c = makeController();
  c->addFolder("/data/music");
  OverviewView view(c.get());
  ASSERT_EQ(view.rowWidgets().size(), 2u);
  auto* disk = qobject_cast<DiskRowWidget*>(view.rowWidgets()[0]);
  ASSERT_NE(disk, nullptr);
  EXPECT_EQ(disk->nameLabel()->text(), "Root Disk");
  EXPECT_EQ(disk->subtitleLabel()->text(), "2.0 TB startup disk");
  EXPECT_EQ(disk->freeLabel()->text(), "500.0 GB free");
  EXPECT_TRUE(disk->usedLabel()->isHidden());
  EXPECT_DOUBLE_EQ(disk->usageBar()->value(), 0.75);
  EXPECT_EQ(disk->primaryButton()->text(), "Scan");

  auto* folder = qobject_cast<FolderRowWidget*>(view.rowWidget("/data/music"));
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(folder->statusLabel()->text(), "local folder");
  EXPECT_EQ(folder->accessibleName(), "music, Scan");
  EXPECT_EQ(folder->starButton()->accessibleName(), "Star folder");
  folder->starButton()->click();
  EXPECT_EQ(folder->starButton()->accessibleName(), "Unstar folder");
  EXPECT_EQ(c->favoriteFolderPaths(), std::vector<std::string>{"/data/music"});

  auto texts = [&](const char* path) {
    std::unique_ptr<QMenu> menu(view.createRowMenu(path));
    QStringList list;
    for (QAction* action : menu->actions())
      list << (action->isSeparator() ? "-" : action->text() + (action->isEnabled() ? "" : "(off)"));
    return list;
  };
  EXPECT_EQ(texts("/data/music"),
            (QStringList{"Rescan", "-", "Unstar “music”", "Show in Files", "Get Info", "-",
                         "Forget Scan Result(off)", "Remove"}));
  EXPECT_EQ(texts("/"), (QStringList{"Rescan", "-", "Show in Files", "Get Info", "-",
                                     "Forget Scan Result(off)", "Remove"}));
}

TEST_F(OverviewViewTest, EveryAlertIsASheetWithABoldMessageAndText360PixelsWide) {
  disks = {root};
  auto c = makeController();
  OverviewView view(c.get());
  view.resize(980, 650);
  view.show();
  const std::string folder = env.tree.folder("caf\xe9 folder");
  EXPECT_TRUE(view.dropUriList(QByteArray::fromStdString(fileURLForPath(folder, true)) + "\r\n"));
  ASSERT_NE(view.rowWidget(folder), nullptr);

  const std::pair<std::function<void()>, QString> asks[] = {
      {[&] { c->addFolder(folder); }, "“caf\ufffd folder” is already added"},
      {[&] { c->addHardDisk(); }, "All available hard disks have already been added."},
      {[&] { emit c->changedFolderChoiceRequested(folder); }, "This folder may have changed"},
      {[&] { view.confirmRemove(folder); }, "Are you sure you want to remove caf\ufffd folder?"},
  };
  for (const auto& [ask, message] : asks) {
    SCOPED_TRACE(message.toStdString());
    if (auto* open = view.activeSheet()) open->close();
    ask();
    auto* box = qobject_cast<QMessageBox*>(view.activeSheet());
    ASSERT_NE(box, nullptr);
    QApplication::processEvents();
    EXPECT_EQ(box->text(), message);
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    auto* label = box->findChild<QLabel*>("qt_msgbox_label");
    EXPECT_TRUE(label->font().bold());
    auto* informative = box->findChild<QLabel*>("qt_msgbox_informativelabel");
    EXPECT_GE((informative ? informative : label)->width(), 360);
  }
  // The last one asks whether to remove the folder: "Yes" hands it to the library.
  button(qobject_cast<QMessageBox*>(view.activeSheet()), "Yes")->click();
  EXPECT_EQ(removeRequests, std::vector<std::string>{folder});
  EXPECT_EQ(view.rowWidget(folder), nullptr);
}

TEST_F(OverviewViewTest, AddHardDiskOffersOnlyDisksWithoutARowAndRemembersTheChoice) {
  disks = {root, efi};
  auto c = makeController();
  OverviewView view(c.get());
  view.addHardDiskButton()->click();
  auto* sheet = qobject_cast<AddDiskSheet*>(view.activeSheet());
  ASSERT_NE(sheet, nullptr);
  ASSERT_EQ(sheet->model()->rowCount(), 1);
  const QModelIndex first = sheet->model()->index(0);
  EXPECT_EQ(first.data(AddDiskModel::kDetailRole).toString(), "500.0 MB • internal volume");
  EXPECT_EQ(first.data(Qt::AccessibleTextRole).toString(), "EFI, 500.0 MB, internal volume");
  sheet->openButton()->click();
  ASSERT_NE(view.rowWidget("/boot/efi"), nullptr);
  EXPECT_EQ(c->addedDiskPaths(), std::vector<std::string>{"/boot/efi"});
  EXPECT_TRUE(c->disksForAdding().empty());
  EXPECT_FALSE(c->addDisk("/boot/efi"));
  EXPECT_EQ(alerts.back().second, "Choose a different hard disk.");
  c->addHardDisk();  // with every disk listed there is nothing to offer
  EXPECT_EQ(alerts.back().first, "All available hard disks have already been added.");
  EXPECT_EQ(addDiskSheets, 1);
  // A disk unmounted while the sheet was open is refused, not remembered.
  EXPECT_FALSE(c->addDisk("/media/gone"));
  EXPECT_EQ(alerts.back(),
            std::make_pair(QString("Unable to Add Hard Disk"),
                           QString("The system did not grant access to this disk.")));
  EXPECT_EQ(c->addedDiskPaths(), std::vector<std::string>{"/boot/efi"});
  auto restarted = makeController();
  ASSERT_TRUE(restarted->rowForPath("/boot/efi") && restarted->rowForPath("/boot/efi")->disk);
}

}  // namespace
}  // namespace tw
