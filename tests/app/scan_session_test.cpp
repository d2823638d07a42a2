// A scan's life on the application's side: the completion prompts, the forget prompt, progress,
// the browser's menu items, the start-up restore, and the whole way from a click to the browser.
#include "app/scan_session.h"

#include <QAction>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>
#include <filesystem>

#include "app/application.h"
#include "app/scan_completion_prompts.h"
#include "browser/scan_browser.h"
#include "browser/scan_children_model.h"
#include "gtest/gtest.h"
#include "platform/launcher_progress.h"
#include "store/scan_store.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

// A browser as the window sees one: some navigation slots, a Delete Queue and the way back.
class FakeBrowser : public QWidget {
  Q_OBJECT
 public:
  int backs = 0, terminals = 0, emptied = 0;
  bool queued = false;
  Q_INVOKABLE bool hasCollectedItems() const { return queued; }
 public slots:
  void navigateBack() { ++backs; }
  void openCurrentFolderInTerminal() { ++terminals; }
  void removeAllCollectedItems() { ++emptied; }
 signals:
  void showOverviewRequested();
  void collectorChanged();
};

ScanNodeRef folderResult(const std::string& path) {
  ScanNodeRef root = ScanNode::makeRoot(path, true);
  root->setScanDate(1700000000);
  return root;
}

class ScanSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(app_.start(), Application::Launch::Running);
    window_ = app_.mainWindow();
    session_ = app_.scanSession();
    prompts_ = session_->prompts();
    prompts_->setRootDiskNameProvider([] { return std::string("Root Disk"); });
  }
  void TearDown() override {
    for (QWidget* widget : QApplication::topLevelWidgets())
      if (auto* box = qobject_cast<QMessageBox*>(widget)) box->close();
    QThreadPool::globalInstance()->waitForDone();
  }
  QMessageBox* waitForPrompt() {
    QMessageBox* prompt = nullptr;
    (void)QTest::qWaitFor([&] { return (prompt = prompts_->currentPrompt()) != nullptr; }, 3000);
    return prompt;
  }
  void waitForNoCheck() {
    (void)QTest::qWaitFor([&] { return !prompts_->isCheckScheduled(); }, 3000);
  }
  static void click(QMessageBox* box, const char* name) {
    auto* button = box ? box->findChild<QPushButton*>(name) : nullptr;
    ASSERT_TRUE(button && button->isEnabled()) << name;
    button->click();
    QApplication::processEvents();
  }

  test::DesktopEnvironment env_;
  Application app_;
  MainWindow* window_ = nullptr;
  ScanSession* session_ = nullptr;
  ScanCompletionPrompts* prompts_ = nullptr;
};

TEST_F(ScanSessionTest, ScansFinishingTogetherArePromptedOneAfterAnotherEvenWithSettingsOpen) {
  app_.showSettings();  // a window of its own, not a sheet: results are still offered
  for (const char* path : {"/srv/alpha", "/srv/beta", "/"})
    session_->acceptCompletedScan(folderResult(path));
  // Nothing shows at once: the first prompt waits for the others to line up.
  EXPECT_EQ(prompts_->currentPrompt(), nullptr);
  EXPECT_TRUE(prompts_->isCheckScheduled());
  EXPECT_EQ(prompts_->queuedCount(), 3u);
  QStringList shown;
  for (int i = 0; i < 3; ++i) {
    QMessageBox* prompt = waitForPrompt();
    ASSERT_NE(prompt, nullptr) << i;
    EXPECT_EQ(prompt->windowModality(), Qt::WindowModal);
    EXPECT_EQ(prompt->parentWidget(), window_);
    shown << prompt->text();
    click(prompt, "scanCompletionCancelButton");
    EXPECT_EQ(prompts_->currentPrompt(), nullptr);  // the next comes after the delay again
  }
  EXPECT_EQ(shown, QStringList({"Do you want to view the scan results for “alpha”?",
                                "Do you want to view the scan results for “beta”?",
                                "Do you want to view the scan results for “Root Disk”?"}));
  EXPECT_EQ(app_.library()->cachedRoot()->path(), "/");  // every one saved, the last current
}

TEST_F(ScanSessionTest, YesOpensTheBrowserAndResultsAreNotOfferedOverTheBrowserOrASheet) {
  ScanNodeRef opened;
  session_->setBrowserFactory([&](ScanNodeRef root) {
    opened = root;
    return new FakeBrowser;
  });
  session_->acceptCompletedScan(folderResult("/srv/one"));
  session_->acceptCompletedScan(folderResult("/srv/two"));
  click(waitForPrompt(), "scanCompletionYesButton");
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(opened->path(), "/srv/one");
  EXPECT_FALSE(window_->isShowingOverview());
  EXPECT_EQ(app_.library()->cachedRoot(), opened);
  // The second result waits its turn, then finds the browser showing: the queue goes.
  waitForNoCheck();
  QTest::qWait(50);
  EXPECT_EQ(prompts_->currentPrompt(), nullptr);
  EXPECT_EQ(prompts_->queuedCount(), 0u);
  // While the browser shows, a finished scan is saved but not offered.
  session_->acceptCompletedScan(folderResult("/srv/three"));
  EXPECT_EQ(prompts_->queuedCount(), 0u);
  EXPECT_EQ(app_.library()->cachedRoot()->path(), "/srv/three");

  // A sheet coming up on the overview drops the queue; with it up nothing is queued.
  window_->showOverview();
  session_->acceptCompletedScan(folderResult("/srv/four"));
  QMessageBox sheet(QMessageBox::Warning, "Sheet", "Sheet", QMessageBox::Ok, window_);
  sheet.open();
  ASSERT_TRUE(window_->hasSheet());
  waitForNoCheck();
  EXPECT_EQ(prompts_->currentPrompt(), nullptr);
  session_->acceptCompletedScan(folderResult("/srv/five"));
  EXPECT_EQ(prompts_->queuedCount(), 0u);
}

TEST_F(ScanSessionTest, ForgetPromptHandsTheChoiceToTheLibrary) {
  ScanNodeRef forgotten;
  session_->setForgetCachedScanRootHandler([&](const ScanNodeRef& root) { forgotten = root; });
  ScanNodeRef result = folderResult("/srv/old");
  session_->forgetScanResult(result);
  QMessageBox* prompt = session_->forgetPrompt();
  ASSERT_NE(prompt, nullptr);
  EXPECT_EQ(prompt->windowModality(), Qt::WindowModal);
  EXPECT_EQ(prompt->text(), "Forget this scan result?");
  QApplication::processEvents();
  const auto x = [&](const char* name) {
    return prompt->findChild<QPushButton*>(name)->mapTo(prompt, QPoint()).x();
  };
  EXPECT_LT(x("forgetDeleteButton"), x("forgetForgetButton"));  // Delete, Forget, Cancel
  EXPECT_LT(x("forgetForgetButton"), x("forgetCancelButton"));
  click(prompt, "forgetCancelButton");
  EXPECT_EQ(forgotten, nullptr);
  session_->forgetScanResult(result);
  click(session_->forgetPrompt(), "forgetForgetButton");
  EXPECT_EQ(forgotten, result);
  EXPECT_EQ(app_.library()->forgottenScanDates().at("/srv/old"), 1700000000);
}

TEST(ScanResultName, FallsBackToTheLastComponentThenTheRootDisk) {
  ScanNodeRef unnamed = folderResult("/home/ann/Films/"), nothing = folderResult("");
  unnamed->setName("");
  nothing->setName("");
  EXPECT_EQ(scanResultDisplayName(*folderResult("/home/ann/Music"), "Data"), "Music");
  EXPECT_EQ(scanResultDisplayName(*unnamed, "Data"), "Films");
  EXPECT_EQ(scanResultDisplayName(*folderResult("/"), "Data"), "Data");
  EXPECT_EQ(scanResultDisplayName(*nothing, "Data"), "Data");
  EXPECT_FALSE(rootDiskName().empty());
}

TEST_F(ScanSessionTest, ProgressShowsInTheTitleAndTheLauncherWhichSendsOnlyChanges) {
  session_->beginPersistentScan();
  session_->showScanProgress(0.995);  // nearly done never reads 100 %
  EXPECT_EQ(window_->windowTitle(), "Tarnwell — 99%");
  EXPECT_TRUE(session_->launcher().isVisible());
  session_->endPersistentScanCompleted(true);
  EXPECT_EQ(window_->windowTitle(), "Tarnwell");
  EXPECT_FALSE(session_->launcher().isVisible());

  std::vector<QVariantMap> sent;
  LauncherProgress launcher([&](const QVariantMap& properties) { sent.push_back(properties); });
  launcher.clear();  // nothing shown: nothing to clear
  for (double fraction : {0.25, 0.25, 1.7}) launcher.showProgress(fraction);
  launcher.clear();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].value("progress").toDouble(), 0.25);
  EXPECT_TRUE(sent[0].value("progress-visible").toBool());
  EXPECT_EQ(sent[1].value("progress").toDouble(), 1.0);
  EXPECT_FALSE(sent[2].value("progress-visible").toBool());
  LauncherProgress onTheBus;  // without a session bus the default sender stays quiet
  onTheBus.showProgress(0.5);
  onTheBus.clear();
}

TEST_F(ScanSessionTest, BrowserItemsActOnlyWhileABrowserShows) {
  const MainMenus& menus = window_->menus();
  for (QAction* item : {menus.back, menus.openCurrentFolderInTerminal, menus.goToOverview})
    EXPECT_FALSE(item->isEnabled());
  auto* browser = new FakeBrowser;
  QPointer<FakeBrowser> alive(browser);
  window_->showBrowser(browser);
  for (QAction* item : {menus.back, menus.openCurrentFolderInTerminal, menus.goToOverview})
    EXPECT_TRUE(item->isEnabled());
  EXPECT_FALSE(menus.forward->isEnabled());  // this browser has no such slot
  menus.back->trigger();
  menus.openCurrentFolderInTerminal->trigger();
  EXPECT_EQ(browser->backs + browser->terminals, 2);
  // The Delete Queue's item follows the browser's answer whenever the queue changes.
  EXPECT_FALSE(menus.removeAllCollectedItems->isEnabled());
  browser->queued = true;
  emit browser->collectorChanged();
  ASSERT_TRUE(menus.removeAllCollectedItems->isEnabled());
  menus.removeAllCollectedItems->trigger();
  EXPECT_EQ(browser->emptied, 1);

  emit browser->showOverviewRequested();
  EXPECT_TRUE(QTest::qWaitFor([&] { return alive.isNull(); }, 3000));
  EXPECT_TRUE(window_->isShowingOverview());
  EXPECT_FALSE(menus.back->isEnabled() || menus.goToOverview->isEnabled());

  // "Scan Folder…" reaches the overview's add-folder operation, showing the overview first.
  int added = 0;
  window_->setScanFolderHandler([&] { added += window_->isShowingOverview(); });
  window_->showBrowser(new FakeBrowser);
  menus.actionScanFolder->trigger();
  EXPECT_EQ(added, 1);
}

TEST(ScanSessionRestore, OneUnreadableScanAlertAndRootsKeptForTheOverview) {
  test::DesktopEnvironment env;
  const std::string history = env.libraryFolder() + "/History";
  test::writeFile(history + "/1700000000001-B.sqlite", "");  // zero bytes
  test::writeFile(history + "/1700000000002-C.sqlite", "not a scan database");
  ASSERT_TRUE(ScanStore::writeRootNode(folderResult("/srv/kept").get(),
                                       history + "/1700000000000-A.sqlite"));
  Application app;
  ASSERT_EQ(app.start(), Application::Launch::Running);
  QSignalSpy handedOver(app.scanSession(), &ScanSession::restoreHandedOver);
  ASSERT_TRUE(handedOver.wait(10000));
  QApplication::processEvents();
  const auto alerts = app.mainWindow()->findChildren<QMessageBox*>("libraryAlert");
  ASSERT_EQ(alerts.size(), 1);
  EXPECT_TRUE(alerts[0]->isVisible() && app.mainWindow()->hasSheet());
  EXPECT_EQ(alerts[0]->text(), "A saved scan could not be read");
  // The readable scan reached the overview and became the current result.
  ScanNodeRef kept = app.overview()->resultForPath("/srv/kept");
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(app.library()->cachedRoot(), kept);
  EXPECT_EQ(app.overview()->cachedRoot(), kept);
  alerts[0]->close();
  QThreadPool::globalInstance()->waitForDone();
}

// The whole path a user takes: add a folder, scan it, accept the prompt, browse, come back.
TEST(ScanToBrowser, ScannedFolderIsSavedOfferedAndBrowsedThroughTheMenus) {
  test::DesktopEnvironment env;
  const std::string folder = env.tree.folder("photos");
  env.tree.file("photos/big.raw", 64 * 1024);
  env.tree.file("photos/2024/a.jpg", 16 * 1024);
  Application app;
  ASSERT_EQ(app.start(), Application::Launch::Running);
  MainWindow* window = app.mainWindow();
  OverviewController* overview = app.overview();
  overview->addFolder(folder);
  EXPECT_FALSE(overview->isScanning(folder));  // adding never scans
  overview->scanURL(folder);
  EXPECT_TRUE(window->windowTitle().startsWith("Tarnwell — "));

  QMessageBox* prompt = nullptr;
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return (prompt = app.scanSession()->prompts()->currentPrompt()) != nullptr; }, 20000));
  EXPECT_EQ(prompt->text(), "Do you want to view the scan results for “photos”?");
  EXPECT_EQ(window->windowTitle(), "Tarnwell");
  prompt->findChild<QPushButton*>("scanCompletionYesButton")->click();
  QApplication::processEvents();
  auto* browser = qobject_cast<ScanBrowser*>(window->browserWidget());
  ASSERT_NE(browser, nullptr);
  EXPECT_EQ(browser->currentNode()->path(), folder);
  ScanChildrenModel* list = browser->listModel();
  ASSERT_EQ(list->rowCount(), 2);  // the file and the sub-folder, largest first
  EXPECT_EQ(list->nodeAt(list->index(0, 0))->name(), "big.raw");

  // The result was saved and the root reads through its copy.
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return std::filesystem::exists(env.libraryFolder() + "/LastScan.sqlite"); }, 20000));
  ASSERT_TRUE(QTest::qWaitFor([&] { return browser->scanRoot()->scanStore() != nullptr; }, 20000));
  EXPECT_EQ(app.library()->cachedRoot().get(), browser->scanRoot());

  // The Go menu follows the browser's history, then leads back to the overview.
  const MainMenus& menus = window->menus();
  EXPECT_FALSE(menus.back->isEnabled());
  browser->navigateToNode(list->nodeAt(list->index(1, 0)), true);
  QApplication::processEvents();
  EXPECT_TRUE(menus.back->isEnabled() && menus.enclosingFolder->isEnabled());
  menus.back->trigger();
  EXPECT_EQ(browser->currentNode()->path(), folder);
  EXPECT_TRUE(menus.forward->isEnabled());
  menus.goToOverview->trigger();
  ASSERT_TRUE(QTest::qWaitFor([&] { return window->browserWidget() == nullptr; }, 5000));
  EXPECT_TRUE(window->isShowingOverview());
  EXPECT_EQ(overview->rowForPath(folder)->primaryTitle, "View");
  EXPECT_FALSE(menus.back->isEnabled());
  QThreadPool::globalInstance()->waitForDone();
}

}  // namespace
}  // namespace tw

#include "scan_session_test.moc"
