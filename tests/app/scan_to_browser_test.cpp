// The whole path a user takes: add a folder, scan it, accept the prompt, browse, come back.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QThreadPool>
#include <filesystem>

#include "app/application.h"
#include "app/main_window.h"
#include "app/scan_completion_prompts.h"
#include "app/scan_session.h"
#include "browser/scan_browser.h"
#include "browser/scan_children_model.h"
#include "overview/overview_controller.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

TEST(ScanToBrowser, ScannedFolderIsSavedOfferedAndBrowsedThroughTheMenus) {
  test::DesktopEnvironment env;
  test::TempTree tree;
  const std::string folder = tree.folder("photos");
  tree.file("photos/big.raw", 64 * 1024);
  tree.file("photos/2024/a.jpg", 16 * 1024);
  tree.file("photos/2024/b.jpg", 8 * 1024);

  Application app;
  ASSERT_EQ(app.start(), Application::Launch::Running);
  MainWindow* window = app.mainWindow();
  OverviewController* overview = app.overview();
  overview->addFolder(folder);
  ASSERT_NE(overview->rowForPath(folder), nullptr);
  EXPECT_FALSE(overview->isScanning(folder));  // adding never scans
  overview->scanURL(folder);
  EXPECT_EQ(window->windowTitle().left(10), "Tarnwell —");

  QMessageBox* prompt = nullptr;
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return (prompt = app.scanSession()->prompts()->currentPrompt()) != nullptr; }, 20000));
  EXPECT_EQ(prompt->text(), "Do you want to view the scan results for “photos”?");
  EXPECT_EQ(window->windowTitle(), "Tarnwell");
  auto* yes = prompt->findChild<QPushButton*>("scanCompletionYesButton");
  ASSERT_NE(yes, nullptr);
  ASSERT_TRUE(yes->isEnabled());
  yes->click();
  QApplication::processEvents();

  auto* browser = qobject_cast<ScanBrowser*>(window->browserWidget());
  ASSERT_NE(browser, nullptr);
  EXPECT_FALSE(window->isShowingOverview());
  EXPECT_EQ(browser->currentNode()->path(), folder);
  ASSERT_EQ(browser->listModel()->rowCount(), 2);  // the file and the sub-folder, largest first
  EXPECT_EQ(browser->listModel()->nodeAt(browser->listModel()->index(0, 0))->name(), "big.raw");

  // The result was saved: a History file, the cache, and the root reading through its copy.
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return std::filesystem::exists(env.libraryFolder() + "/LastScan.sqlite"); }, 20000));
  ASSERT_TRUE(QTest::qWaitFor([&] { return browser->scanRoot()->scanStore() != nullptr; }, 20000));
  EXPECT_EQ(app.library()->cachedRoot().get(), browser->scanRoot());

  // The Go menu follows the browser's history.
  MainMenus& menus = window->menus();
  QApplication::processEvents();
  EXPECT_FALSE(menus.back->isEnabled());
  ScanNode* year = browser->listModel()->nodeAt(browser->listModel()->index(1, 0));
  browser->navigateToNode(year, true);
  QApplication::processEvents();
  EXPECT_TRUE(menus.back->isEnabled());
  EXPECT_TRUE(menus.enclosingFolder->isEnabled());
  menus.back->trigger();
  EXPECT_EQ(browser->currentNode()->path(), folder);
  EXPECT_TRUE(menus.forward->isEnabled());

  // And back to the overview, where the folder's row offers its result.
  menus.goToOverview->trigger();
  ASSERT_TRUE(QTest::qWaitFor([&] { return window->browserWidget() == nullptr; }, 5000));
  EXPECT_TRUE(window->isShowingOverview());
  EXPECT_EQ(overview->rowForPath(folder)->primaryTitle, "View");
  EXPECT_FALSE(menus.back->isEnabled());
  QThreadPool::globalInstance()->waitForDone();
}

}  // namespace
}  // namespace tw
