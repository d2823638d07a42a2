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
#include "app/scan_completion_prompts.h"
#include "app/scan_session.h"
#include "browser/scan_browser.h"
#include "browser/scan_children_model.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

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
