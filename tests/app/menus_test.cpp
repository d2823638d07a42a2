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
#include "gtest/gtest.h"
#include "support/desktop_environment.h"

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
  // The texts of the menu holding `name`, "-" for separators.
  QStringList menuOf(const char* name) {
    QStringList texts;
    for (QAction* top : window_->menuBar()->actions()) {
      if (!top->menu() || !top->menu()->actions().contains(action(name))) continue;
      for (QAction* item : top->menu()->actions())
        texts << (item->isSeparator() ? QStringLiteral("-") : item->text());
    }
    return texts;
  }

  test::DesktopEnvironment env_;
  Application app_;
  MainWindow* window_ = nullptr;
};

TEST_F(MenusTest, MenusItemsAndShortcutsAreInTheirDesktopPlacesAndOnlyOverviewItemsAreOn) {
  QStringList titles;
  for (QAction* top : window_->menuBar()->actions()) titles << top->text().remove('&');
  EXPECT_EQ(titles, QStringList({"File", "Edit", "View", "Action", "Go", "Window", "Help"}));
  EXPECT_EQ(menuOf("quitAction"), QStringList({"Scan Folder…", "-", "Quit Tarnwell"}));
  EXPECT_EQ(menuOf("settingsAction"), QStringList({"Undo", "Redo", "-", "Cut", "Copy", "Paste",
                                                   "Select All", "-", "Settings…"}));
  EXPECT_EQ(menuOf("fullScreenAction"), QStringList({"Enter Full Screen"}));
  EXPECT_EQ(menuOf("collectSelectedItemAction"),
            QStringList({"Scan Folder…", "-", "Add Selected Item to Delete Queue",
                         "Remove All Items from Delete Queue", "-", "Show Current Folder in Files",
                         "Open Current Folder in Terminal"}));
  EXPECT_EQ(menuOf("backAction"),
            QStringList({"Back to Disks and Folders", "-", "Back", "Forward", "Enclosing Folder"}));
  EXPECT_EQ(menuOf("minimizeAction"), QStringList({"Minimize", "Zoom"}));
  EXPECT_EQ(menuOf("aboutAction"), QStringList({"Tarnwell Help", "-", "About Tarnwell"}));
  for (QAction* item : window_->findChildren<QAction*>())
    EXPECT_FALSE(QStringList({"Hide Tarnwell", "Hide Others", "Show All"}).contains(item->text()));

  using K = QKeySequence;
  // Name, shortcuts, enabled while the overview shows (-1: depends on the clipboard or history).
  const std::tuple<const char*, QList<K>, int> expected[] = {
      {"scanFolderAction", {K(Qt::CTRL | Qt::Key_O)}, 1},
      {"quitAction", {K(Qt::CTRL | Qt::Key_Q)}, 1},
      {"undoAction", {K(Qt::CTRL | Qt::Key_Z)}, 0},
      {"redoAction", {K(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)}, -1},
      {"cutAction", {K(Qt::CTRL | Qt::Key_X)}, 0},
      {"copyAction", {K(Qt::CTRL | Qt::Key_C)}, 0},
      {"pasteAction", {K(Qt::CTRL | Qt::Key_V)}, -1},
      {"selectAllAction", {K(Qt::CTRL | Qt::Key_A)}, 0},
      {"settingsAction", {K(Qt::CTRL | Qt::Key_Comma)}, 1},
      {"fullScreenAction", {K(Qt::Key_F11)}, 1},
      {"actionScanFolderAction", {}, 1},
      {"collectSelectedItemAction", {}, 0},
      {"removeAllCollectedItemsAction", {}, 0},
      {"showCurrentFolderInFilesAction", {}, 0},
      {"openCurrentFolderInTerminalAction", {}, 0},
      {"goToOverviewAction", {K(Qt::CTRL | Qt::Key_1)}, 0},
      {"backAction", {K(Qt::ALT | Qt::Key_Left), K(Qt::CTRL | Qt::Key_BracketLeft)}, 0},
      {"forwardAction", {K(Qt::ALT | Qt::Key_Right), K(Qt::CTRL | Qt::Key_BracketRight)}, 0},
      {"enclosingFolderAction", {K(Qt::ALT | Qt::Key_Up)}, 0},
      {"minimizeAction", {K(Qt::CTRL | Qt::Key_M)}, 1},
      {"zoomAction", {}, 1},
      {"helpAction", {K(Qt::Key_F1)}, 1},
      {"aboutAction", {}, 1},
  };
  for (const auto& [name, keys, enabled] : expected) {
    QAction* item = action(name);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->shortcuts(), keys) << name;
    if (enabled >= 0) {
      EXPECT_EQ(item->isEnabled(), enabled == 1) << name;
    }
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

TEST_F(MenusTest, SettingsAboutHelpAndFullScreenOpenTheirWindows) {
  action("settingsAction")->trigger();
  SettingsDialog* settings = app_.settingsDialog();
  ASSERT_NE(settings, nullptr);
  EXPECT_TRUE(settings->isVisible());
  EXPECT_EQ(settings->windowModality(), Qt::WindowModal);
  EXPECT_EQ(settings->parentWidget(), window_);
  EXPECT_EQ(settings->size(), QSize(680, 680));
  action("settingsAction")->trigger();  // a second choice shows the same window
  EXPECT_EQ(window_->findChildren<SettingsDialog*>().size(), 1);
  settings->close();

  action("aboutAction")->trigger();
  AboutDialog* about = app_.aboutDialog();
  ASSERT_NE(about, nullptr);
  EXPECT_TRUE(about->isVisible());
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

  action("helpAction")->trigger();
  auto* help = window_->findChild<QMessageBox*>("helpWindow");
  ASSERT_NE(help, nullptr);
  EXPECT_TRUE(help->isVisible());
  EXPECT_EQ(help->windowModality(), Qt::ApplicationModal);
  help->close();

  // Full screen toggles and names the way back.
  QAction* fullScreen = action("fullScreenAction");
  fullScreen->trigger();
  EXPECT_TRUE(window_->isFullScreen());
  EXPECT_EQ(fullScreen->text(), "Exit Full Screen");
  fullScreen->trigger();
  EXPECT_FALSE(window_->isFullScreen());
  EXPECT_EQ(fullScreen->text(), "Enter Full Screen");
}

TEST_F(MenusTest, EditItemsActOnTheFocusedField) {
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
