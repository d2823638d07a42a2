#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QThreadPool>

#include "app/about_dialog.h"
#include "app/application.h"
#include "app/main_window.h"
#include "app/settings_dialog.h"
#include "app_test_support.h"
#include "gtest/gtest.h"

namespace tw {
namespace {

class MenusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(app_.start(), Application::Launch::Running);
    window_ = app_.mainWindow();
  }
  void TearDown() override { QThreadPool::globalInstance()->waitForDone(); }

  QAction* action(const char* name) {
    auto* found = window_->findChild<QAction*>(QString::fromLatin1(name));
    EXPECT_NE(found, nullptr) << name;
    return found;
  }
  QMenu* menuHolding(QAction* item) {
    for (QAction* top : window_->menuBar()->actions()) {
      if (top->menu() && top->menu()->actions().contains(item)) return top->menu();
    }
    return nullptr;
  }
  QStringList itemTexts(QMenu* menu) {
    QStringList texts;
    for (QAction* item : menu->actions()) {
      texts << (item->isSeparator() ? QStringLiteral("-") : item->text());
    }
    return texts;
  }

  test::AppEnvironment env_;
  Application app_;
  MainWindow* window_ = nullptr;
};

TEST_F(MenusTest, MenusAndItemsAreInTheirDesktopPlaces) {
  QStringList titles;
  for (QAction* top : window_->menuBar()->actions()) titles << top->text().remove('&');
  EXPECT_EQ(titles, QStringList({"File", "Edit", "View", "Action", "Go", "Window", "Help"}));

  EXPECT_EQ(itemTexts(menuHolding(action("quitAction"))),
            QStringList({"Scan Folder…", "-", "Quit Tarnwell"}));
  EXPECT_EQ(
      itemTexts(menuHolding(action("settingsAction"))),
      QStringList({"Undo", "Redo", "-", "Cut", "Copy", "Paste", "Select All", "-", "Settings…"}));
  EXPECT_EQ(itemTexts(menuHolding(action("fullScreenAction"))), QStringList({"Enter Full Screen"}));
  EXPECT_EQ(itemTexts(menuHolding(action("collectSelectedItemAction"))),
            QStringList({"Scan Folder…", "-", "Add Selected Item to Delete Queue",
                         "Remove All Items from Delete Queue", "-", "Show Current Folder in Files",
                         "Open Current Folder in Terminal"}));
  EXPECT_EQ(itemTexts(menuHolding(action("backAction"))),
            QStringList({"Back to Disks and Folders", "-", "Back", "Forward", "Enclosing Folder"}));
  EXPECT_EQ(itemTexts(menuHolding(action("minimizeAction"))), QStringList({"Minimize", "Zoom"}));
  EXPECT_EQ(itemTexts(menuHolding(action("aboutAction"))),
            QStringList({"Tarnwell Help", "-", "About Tarnwell"}));
  for (const char* gone : {"Hide Tarnwell", "Hide Others", "Show All"}) {
    for (QAction* item : window_->findChildren<QAction*>()) EXPECT_NE(item->text(), gone);
  }
}

TEST_F(MenusTest, ShortcutsUseControlAndTheDesktopsKeys) {
  using K = QKeySequence;
  const std::pair<const char*, QList<K>> expected[] = {
      {"scanFolderAction", {K(Qt::CTRL | Qt::Key_O)}},
      {"quitAction", {K(Qt::CTRL | Qt::Key_Q)}},
      {"undoAction", {K(Qt::CTRL | Qt::Key_Z)}},
      {"redoAction", {K(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)}},
      {"cutAction", {K(Qt::CTRL | Qt::Key_X)}},
      {"copyAction", {K(Qt::CTRL | Qt::Key_C)}},
      {"pasteAction", {K(Qt::CTRL | Qt::Key_V)}},
      {"selectAllAction", {K(Qt::CTRL | Qt::Key_A)}},
      {"settingsAction", {K(Qt::CTRL | Qt::Key_Comma)}},
      {"fullScreenAction", {K(Qt::Key_F11)}},
      {"actionScanFolderAction", {}},
      {"goToOverviewAction", {K(Qt::CTRL | Qt::Key_1)}},
      {"backAction", {K(Qt::ALT | Qt::Key_Left), K(Qt::CTRL | Qt::Key_BracketLeft)}},
      {"forwardAction", {K(Qt::ALT | Qt::Key_Right), K(Qt::CTRL | Qt::Key_BracketRight)}},
      {"enclosingFolderAction", {K(Qt::ALT | Qt::Key_Up)}},
      {"minimizeAction", {K(Qt::CTRL | Qt::Key_M)}},
      {"zoomAction", {}},
      {"helpAction", {K(Qt::Key_F1)}},
      {"aboutAction", {}},
  };
  for (const auto& [name, keys] : expected) {
    QAction* item = action(name);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->shortcuts(), keys) << name;
  }
  // No key is claimed twice.
  QList<QKeySequence> seen;
  for (QAction* item : window_->findChildren<QAction*>()) {
    for (const QKeySequence& key : item->shortcuts()) {
      EXPECT_FALSE(seen.contains(key)) << key.toString().toStdString();
      seen << key;
    }
  }
}

TEST_F(MenusTest, BrowserAndDeleteQueueItemsAreDisabledOnTheOverview) {
  for (const char* name :
       {"collectSelectedItemAction", "removeAllCollectedItemsAction",
        "showCurrentFolderInFilesAction", "openCurrentFolderInTerminalAction", "goToOverviewAction",
        "backAction", "forwardAction", "enclosingFolderAction"}) {
    EXPECT_FALSE(action(name)->isEnabled()) << name;
  }
  for (const char* name :
       {"scanFolderAction", "actionScanFolderAction", "quitAction", "settingsAction",
        "fullScreenAction", "minimizeAction", "zoomAction", "helpAction", "aboutAction"}) {
    EXPECT_TRUE(action(name)->isEnabled()) << name;
  }
}

TEST_F(MenusTest, SettingsOpensWindowModalOnTheMainWindow) {
  action("settingsAction")->trigger();
  SettingsDialog* settings = app_.settingsDialog();
  ASSERT_NE(settings, nullptr);
  EXPECT_TRUE(settings->isVisible());
  EXPECT_EQ(settings->windowModality(), Qt::WindowModal);
  EXPECT_EQ(settings->parentWidget(), window_);
  EXPECT_EQ(settings->size(), QSize(680, 680));
  action("settingsAction")->trigger();  // a second choice shows the same window
  EXPECT_EQ(window_->findChildren<SettingsDialog*>().size(), 1);
}

TEST_F(MenusTest, AboutShowsTheVersionCommitAndBuildKind) {
  action("aboutAction")->trigger();
  AboutDialog* about = app_.aboutDialog();
  ASSERT_NE(about, nullptr);
  EXPECT_TRUE(about->isVisible());
  EXPECT_EQ(about->windowTitle(), "About Tarnwell");
  EXPECT_EQ(about->findChild<QLabel*>("aboutName")->text(), "Tarnwell");
  EXPECT_EQ(about->findChild<QLabel*>("aboutVersion")->text(),
            QStringLiteral("Version " TW_EXPECTED_VERSION));
  const QString build = about->findChild<QLabel*>("aboutBuild")->text();
  // This test binary is a debug build; the commit is a hex prefix or "unknown".
  EXPECT_TRUE(QRegularExpression(QStringLiteral("^Commit ([0-9a-f]{7,}(-modified)?|unknown) — "
                                                "debug build$"))
                  .match(build)
                  .hasMatch())
      << build.toStdString();
  auto* close = about->findChild<QPushButton*>("aboutCloseButton");
  ASSERT_NE(close, nullptr);
  EXPECT_TRUE(close->isDefault());
  QTest::mouseClick(close, Qt::LeftButton);
  EXPECT_FALSE(about->isVisible());
}

TEST_F(MenusTest, HelpOpensTheHelpWindow) {
  action("helpAction")->trigger();
  auto* help = window_->findChild<QMessageBox*>("helpWindow");
  ASSERT_NE(help, nullptr);
  EXPECT_TRUE(help->isVisible());
  EXPECT_EQ(help->windowModality(), Qt::ApplicationModal);
  EXPECT_EQ(help->text(), "Tarnwell Help");
  EXPECT_EQ(help->informativeText(),
            "Choose a disk or folder to scan, then click the sunburst to explore large files. "
            "Click the center to move up and press Space to preview a selected file.");
  help->close();
}

TEST_F(MenusTest, FullScreenTogglesAndNamesTheWayBack) {
  QAction* fullScreen = action("fullScreenAction");
  fullScreen->trigger();
  EXPECT_TRUE(window_->isFullScreen());
  EXPECT_EQ(fullScreen->text(), "Exit Full Screen");
  fullScreen->trigger();
  EXPECT_FALSE(window_->isFullScreen());
  EXPECT_EQ(fullScreen->text(), "Enter Full Screen");
}

TEST_F(MenusTest, EditItemsActOnTheFocusedFieldAndAreOffWithoutOne) {
  for (const char* name : {"undoAction", "cutAction", "copyAction", "selectAllAction"}) {
    EXPECT_FALSE(action(name)->isEnabled()) << name;
  }
  auto* field = new QLineEdit(window_->overviewWidget());
  field->setText(QStringLiteral("node_modules"));
  field->show();
  window_->activateWindow();
  field->setFocus();
  QApplication::processEvents();
  if (QApplication::focusWidget() != field) GTEST_SKIP() << "this platform gives no focus";
  EXPECT_TRUE(action("selectAllAction")->isEnabled());
  action("selectAllAction")->trigger();
  EXPECT_EQ(field->selectedText(), "node_modules");
  EXPECT_TRUE(action("cutAction")->isEnabled());
  action("cutAction")->trigger();
  EXPECT_EQ(field->text(), "");
  EXPECT_TRUE(action("undoAction")->isEnabled());
  action("undoAction")->trigger();
  EXPECT_EQ(field->text(), "node_modules");
}

}  // namespace
}  // namespace tw
