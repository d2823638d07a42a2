#include "app/scan_session.h"

#include <sys/stat.h>

#include <QAction>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>
#include <fstream>

#include "app/application.h"
#include "app/main_window.h"
#include "app/scan_completion_prompts.h"
#include "gtest/gtest.h"
#include "platform/launcher_progress.h"
#include "store/scan_store.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

// A browser as the window sees one: the navigation slots and the way back.
class FakeBrowser : public QWidget {
  Q_OBJECT
 public:
  int backs = 0;
  int terminals = 0;
 public slots:
  void navigateBack() { ++backs; }
  void openCurrentFolderInTerminal() { ++terminals; }
 signals:
  void showOverviewRequested();
};

ScanNodeRef folderResult(const std::string& path) {
  ScanNodeRef root = ScanNode::makeRoot(path, true);
  ScanNode* file = root->createNode("data.bin", false);
  file->setSize(4096);
  root->addChild(file);
  root->setSize(4096);
  root->setScanDate(1700000000);
  return root;
}

class ScanSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(app_.start(), Application::Launch::Running);
    window_ = app_.mainWindow();
    session_ = app_.scanSession();
    ASSERT_NE(session_, nullptr);
    session_->prompts()->setRootDiskNameProvider([] { return std::string("Root Disk"); });
  }
  void TearDown() override {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      if (auto* box = qobject_cast<QMessageBox*>(widget)) box->close();
    }
    QThreadPool::globalInstance()->waitForDone();
  }

  QMessageBox* waitForPrompt() {
    QMessageBox* prompt = nullptr;
    (void)QTest::qWaitFor(
        [&] { return (prompt = session_->prompts()->currentPrompt()) != nullptr; }, 3000);
    return prompt;
  }
  void click(QMessageBox* box, const char* buttonName) {
    auto* button = box->findChild<QPushButton*>(QString::fromLatin1(buttonName));
    ASSERT_NE(button, nullptr) << buttonName;
    ASSERT_TRUE(button->isEnabled()) << buttonName;
    button->click();
    QApplication::processEvents();
  }

  test::DesktopEnvironment env_;
  Application app_;
  MainWindow* window_ = nullptr;
  ScanSession* session_ = nullptr;
};

TEST_F(ScanSessionTest, ThreeScansFinishingTogetherArePromptedOneAfterAnother) {
  for (const char* path : {"/srv/alpha", "/srv/beta", "/"}) {
    session_->acceptCompletedScan(folderResult(path));
  }
  // Nothing shows at once: the first prompt waits for the others to line up.
  EXPECT_EQ(session_->prompts()->currentPrompt(), nullptr);
  EXPECT_TRUE(session_->prompts()->isCheckScheduled());
  EXPECT_EQ(session_->prompts()->queuedCount(), 3u);

  QStringList shown;
  for (int i = 0; i < 3; ++i) {
    QMessageBox* prompt = waitForPrompt();
    ASSERT_NE(prompt, nullptr) << i;
    EXPECT_EQ(prompt->windowModality(), Qt::WindowModal);
    EXPECT_EQ(prompt->parentWidget(), window_);
    shown << prompt->text();
    EXPECT_TRUE(prompt->findChild<QPushButton*>("scanCompletionYesButton")->isEnabled());
    click(prompt, "scanCompletionCancelButton");
    // The next one comes after the delay again, not at once.
    EXPECT_EQ(session_->prompts()->currentPrompt(), nullptr);
  }
  EXPECT_EQ(shown, QStringList({"Do you want to view the scan results for “alpha”?",
                                "Do you want to view the scan results for “beta”?",
                                "Do you want to view the scan results for “Root Disk”?"}));
  EXPECT_EQ(session_->prompts()->queuedCount(), 0u);
  // Every result was saved and the last one is the current result.
  EXPECT_EQ(app_.library()->cachedRoot()->path(), "/");
}

TEST_F(ScanSessionTest, YesOpensTheBrowserAndTheRestOfTheQueueIsDropped) {
  ScanNodeRef opened;
  session_->setBrowserFactory([&](ScanNodeRef root) {
    opened = root;
    return new FakeBrowser;
  });
  session_->acceptCompletedScan(folderResult("/srv/one"));
  session_->acceptCompletedScan(folderResult("/srv/two"));
  QMessageBox* prompt = waitForPrompt();
  ASSERT_NE(prompt, nullptr);
  click(prompt, "scanCompletionYesButton");
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(opened->path(), "/srv/one");
  EXPECT_FALSE(window_->isShowingOverview());
  EXPECT_EQ(app_.library()->cachedRoot(), opened);
  // The second result waits its turn, then finds the browser showing: the queue goes.
  (void)QTest::qWaitFor([&] { return !session_->prompts()->isCheckScheduled(); }, 3000);
  QTest::qWait(50);
  EXPECT_EQ(session_->prompts()->currentPrompt(), nullptr);
  EXPECT_EQ(session_->prompts()->queuedCount(), 0u);

  // While the browser shows, a finished scan is saved but not offered.
  session_->acceptCompletedScan(folderResult("/srv/three"));
  EXPECT_EQ(session_->prompts()->queuedCount(), 0u);
  EXPECT_EQ(app_.library()->cachedRoot()->path(), "/srv/three");
}

TEST_F(ScanSessionTest, ASheetComingUpDropsTheQueue) {
  session_->acceptCompletedScan(folderResult("/srv/one"));
  app_.showSettings();  // window-modal: a sheet
  ASSERT_TRUE(window_->hasSheet());
  (void)QTest::qWaitFor([&] { return !session_->prompts()->isCheckScheduled(); }, 3000);
  EXPECT_EQ(session_->prompts()->currentPrompt(), nullptr);
  EXPECT_EQ(session_->prompts()->queuedCount(), 0u);
  // With the sheet still up a new result is not even queued.
  session_->acceptCompletedScan(folderResult("/srv/two"));
  EXPECT_EQ(session_->prompts()->queuedCount(), 0u);
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
  // Delete, Forget, Cancel from left to right.
  QApplication::processEvents();
  const auto x = [&](const char* name) {
    return prompt->findChild<QPushButton*>(name)->mapTo(prompt, QPoint()).x();
  };
  EXPECT_LT(x("forgetDeleteButton"), x("forgetForgetButton"));
  EXPECT_LT(x("forgetForgetButton"), x("forgetCancelButton"));
  click(prompt, "forgetCancelButton");
  EXPECT_EQ(forgotten, nullptr);

  session_->forgetScanResult(result);
  click(session_->forgetPrompt(), "forgetForgetButton");
  EXPECT_EQ(forgotten, result);
  EXPECT_EQ(app_.library()->forgottenScanDates().at("/srv/old"), 1700000000);
}

TEST(ScanResultName, FallsBackToTheLastComponentThenTheRootDisk) {
  EXPECT_EQ(scanResultDisplayName(*folderResult("/home/ann/Music"), "Data"), "Music");
  ScanNodeRef unnamed = folderResult("/home/ann/Films/");
  unnamed->setName("");
  EXPECT_EQ(scanResultDisplayName(*unnamed, "Data"), "Films");
  EXPECT_EQ(scanResultDisplayName(*folderResult("/"), "Data"), "Data");
  ScanNodeRef nothing = folderResult("");
  nothing->setName("");
  EXPECT_EQ(scanResultDisplayName(*nothing, "Data"), "Data");
  EXPECT_FALSE(rootDiskName().empty());
}

TEST_F(ScanSessionTest, ProgressShowsInTheTitleAndTheLauncherWhichSendsOnlyChanges) {
  session_->beginPersistentScan();
  session_->showScanProgress(0.42);
  EXPECT_EQ(window_->windowTitle(), "Tarnwell — 42%");
  EXPECT_TRUE(session_->launcher().isVisible());
  session_->showScanProgress(0.995);  // nearly done never reads 100 %
  EXPECT_EQ(window_->windowTitle(), "Tarnwell — 99%");
  session_->endPersistentScanCompleted(true);
  EXPECT_EQ(window_->windowTitle(), "Tarnwell");
  EXPECT_FALSE(session_->launcher().isVisible());

  // The launcher sends its update properties only when they change.
  std::vector<QVariantMap> sent;
  LauncherProgress launcher([&](const QVariantMap& properties) { sent.push_back(properties); });
  launcher.clear();  // nothing shown: nothing to clear
  launcher.showProgress(0.25);
  launcher.showProgress(0.25);
  launcher.showProgress(1.7);
  launcher.clear();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].value("progress").toDouble(), 0.25);
  EXPECT_TRUE(sent[0].value("progress-visible").toBool());
  EXPECT_EQ(sent[1].value("progress").toDouble(), 1.0);
  EXPECT_FALSE(sent[2].value("progress-visible").toBool());
  // Without a session bus the default sender stays quiet.
  LauncherProgress onTheBus;
  onTheBus.showProgress(0.5);
  onTheBus.clear();
}

TEST_F(ScanSessionTest, BrowserItemsActOnlyWhileABrowserShows) {
  QAction* back = window_->menus().back;
  QAction* terminal = window_->menus().openCurrentFolderInTerminal;
  QAction* overview = window_->menus().goToOverview;
  for (QAction* item : {back, terminal, overview, window_->menus().forward}) {
    EXPECT_FALSE(item->isEnabled());
  }
  auto* browser = new FakeBrowser;
  QPointer<FakeBrowser> alive(browser);
  window_->showBrowser(browser);
  EXPECT_TRUE(back->isEnabled());
  EXPECT_TRUE(terminal->isEnabled());
  EXPECT_TRUE(overview->isEnabled());
  EXPECT_FALSE(window_->menus().forward->isEnabled());  // this browser has no such slot
  back->trigger();
  terminal->trigger();
  EXPECT_EQ(browser->backs, 1);
  EXPECT_EQ(browser->terminals, 1);

  emit browser->showOverviewRequested();
  (void)QTest::qWaitFor([&] { return alive.isNull(); }, 3000);
  EXPECT_TRUE(alive.isNull());
  EXPECT_TRUE(window_->isShowingOverview());
  EXPECT_FALSE(back->isEnabled());
  EXPECT_FALSE(overview->isEnabled());

  // "Scan Folder…" reaches the overview's add-folder operation, showing the overview first.
  int added = 0;
  window_->setScanFolderHandler([&] {
    EXPECT_TRUE(window_->isShowingOverview());
    ++added;
  });
  window_->showBrowser(new FakeBrowser);
  window_->menus().actionScanFolder->trigger();
  EXPECT_EQ(added, 1);
  EXPECT_TRUE(window_->isShowingOverview());
}

TEST(ScanSessionRestore, OneUnreadableScanAlertAndRootsKeptForTheOverview) {
  test::DesktopEnvironment env;
  const std::string history = env.libraryFolder() + "/History";
  ::mkdir(env.libraryFolder().c_str(), 0700);
  ::mkdir(history.c_str(), 0700);
  ScanNodeRef saved = folderResult("/srv/kept");
  ASSERT_TRUE(ScanStore::writeRootNode(saved.get(), history + "/1700000000000-A.sqlite"));
  std::ofstream(history + "/1700000000001-B.sqlite").flush();  // zero bytes
  std::ofstream(history + "/1700000000002-C.sqlite") << "not a scan database";

  Application app;
  ASSERT_EQ(app.start(), Application::Launch::Running);
  EXPECT_EQ(app.startupSteps().mid(app.startupSteps().indexOf("overview")),
            QStringList({"overview", "restore"}));
  QSignalSpy handedOver(app.scanSession(), &ScanSession::restoreHandedOver);
  ASSERT_TRUE(handedOver.wait(10000));
  QApplication::processEvents();

  const auto alerts = app.mainWindow()->findChildren<QMessageBox*>("libraryAlert");
  ASSERT_EQ(alerts.size(), 1);
  EXPECT_TRUE(alerts[0]->isVisible());
  EXPECT_EQ(alerts[0]->windowModality(), Qt::WindowModal);
  EXPECT_EQ(alerts[0]->text(), "A saved scan could not be read");
  EXPECT_TRUE(app.mainWindow()->hasSheet());

  // The readable scan reached the overview and became the current result.
  ScanNodeRef kept = app.overview()->resultForPath("/srv/kept");
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(app.library()->cachedRoot(), kept);
  EXPECT_EQ(app.overview()->cachedRoot(), kept);
  alerts[0]->close();
  QThreadPool::globalInstance()->waitForDone();
}

}  // namespace
}  // namespace tw

#include "scan_session_test.moc"
