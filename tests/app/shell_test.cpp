// The application shell as it starts, stops, and answers its menus.
#include <QAction>
#include <QApplication>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProxyStyle>
#include <QPushButton>
#include <QRegularExpression>
#include <QStyle>
#include <QTest>
#include <QThreadPool>
#include <QTimer>
#include <filesystem>

#include "app/about_dialog.h"
#include "app/application.h"
#include "app/instance_lock.h"
#include "app/scan_session.h"
#include "app/settings_dialog.h"
#include "gtest/gtest.h"
#include "overview/overview_view.h"
#include "services/preferences.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

using std::filesystem::exists;

// Two colours are the same to the eye when no 8-bit channel differs by more than one.
void expectColour(const QColor& c, double r, double g, double b) {
  EXPECT_LE(std::max({std::abs(c.redF() - r), std::abs(c.greenF() - g), std::abs(c.blueF() - b)}),
            1.0 / 255)
      << c.name().toStdString();
}

class ShellTest : public ::testing::Test {
 protected:
  void start() {
    app = std::make_unique<Application>();
    ASSERT_EQ(app->start(), Application::Launch::Running);
    window = app->mainWindow();
  }
  void TearDown() override {
    QThreadPool::globalInstance()->waitForDone();
    app.reset();
  }
  QAction* action(const char* name) {
    auto* found = window->findChild<QAction*>(QString::fromLatin1(name));
    EXPECT_NE(found, nullptr) << name;
    return found;
  }
  // The texts of the menu holding `name`, "-" for separators.
  QStringList menuOf(const char* name) {
    QStringList texts;
    for (QAction* top : window->menuBar()->actions())
      if (top->menu() && top->menu()->actions().contains(action(name)))
        for (QAction* item : top->menu()->actions())
          texts << (item->isSeparator() ? QStringLiteral("-") : item->text());
    return texts;
  }

  test::DesktopEnvironment env;
  std::unique_ptr<Application> app;
  MainWindow* window = nullptr;
};

TEST_F(ShellTest, StartRunsEveryStepShowsTheDarkWindowAsItsDesktopEntryAndExitReleasesTheLock) {
  const std::string lock = env.libraryFolder() + "/Instance.lock";
  const std::string marker = env.libraryFolder() + "/ScanInProgress";
  test::writeFile(marker, "");
  start();
  EXPECT_EQ(app->startupSteps(), QStringList({"icon", "defaults", "lock", "listen", "appearance",
                                              "marker", "menus", "window", "overview", "restore"}));
  EXPECT_FALSE(exists(marker));
  EXPECT_TRUE(InstanceLock().acquire(lock).has_value());
  EXPECT_TRUE(defaultPreferencesRegistered());
  EXPECT_FALSE(QApplication::windowIcon().isNull());
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(window->size(), QSize(980, 650));
  window->resize(500, 300);
  EXPECT_EQ(window->size(), QSize(760, 500));  // the minimum
  ASSERT_NE(qobject_cast<OverviewView*>(window->overviewWidget()), nullptr);
  EXPECT_TRUE(window->isShowingOverview() && window->overviewWidget()->isVisible());

  // The dark appearance is Fusion with Tarnwell's colours, as painted.
  auto* style = qobject_cast<QProxyStyle*>(QApplication::style());
  ASSERT_NE(style, nullptr);
  EXPECT_EQ(style->baseStyle()->name(), "fusion");
  expectColour(window->palette().color(QPalette::Text), 0.92, 0.92, 0.92);
  expectColour(window->palette().color(QPalette::Highlight), 0x0A / 255.0, 0x84 / 255.0, 1.0);
  expectColour(window->overviewWidget()->grab().toImage().pixelColor(4, 4), 0.105, 0.114, 0.137);

  // The title carries the progress once: X11 and Wayland would append a display name set by the
  // program ("Tarnwell — 34% — Tarnwell"), so none may be set.
  EXPECT_EQ(window->windowTitle(), "Tarnwell");
  app->scanSession()->showScanProgress(0.34);
  EXPECT_EQ(window->windowTitle(), "Tarnwell — 34%");
  QCoreApplication::setApplicationName("probe");
  EXPECT_EQ(QGuiApplication::applicationDisplayName(), "probe");
  QCoreApplication::setApplicationName("Tarnwell");
  // Docks link the window to its entry: on Wayland by the desktop file name, on X11 by the window
  // class (the application name), which the entry names as StartupWMClass.
  EXPECT_EQ(QGuiApplication::desktopFileName() + ".desktop",
            QFileInfo(TW_DESKTOP_ENTRY).fileName());
  EXPECT_TRUE(QString::fromStdString(test::readFile(TW_DESKTOP_ENTRY))
                  .contains("\nStartupWMClass=" + QCoreApplication::applicationName() + "\n"));

  // Closing the main window quits, and the lock is released with its file kept.
  QTimer::singleShot(0, window, [this] { window->close(); });
  QTimer guard;
  QObject::connect(&guard, &QTimer::timeout, [] { QCoreApplication::exit(99); });
  guard.start(5000);
  EXPECT_EQ(QCoreApplication::exec(), 0);
  QThreadPool::globalInstance()->waitForDone();
  app.reset();
  EXPECT_TRUE(exists(lock));
  EXPECT_FALSE(InstanceLock().acquire(lock).has_value());
}

TEST_F(ShellTest, OnlyTheLockHolderRemovesOldPendingFiles) {
  const std::string old = env.libraryFolder() + "/LastScan-0F2A.pending";
  test::writeFile(old, "x");
  env.tree.setModificationTime("home/.local/share/Tarnwell/LastScan-0F2A.pending",
                               static_cast<double>(::time(nullptr) - 11 * 60));
  {
    InstanceLock running;
    ASSERT_FALSE(running.acquire(env.libraryFolder() + "/Instance.lock").has_value());
    Application second;  // nobody listens: the hand-over gives up after its timeout
    EXPECT_EQ(second.start(), Application::Launch::Duplicate);
    EXPECT_EQ(second.mainWindow(), nullptr);
    QThreadPool::globalInstance()->waitForDone();
    EXPECT_TRUE(exists(old));
  }
  start();
  QThreadPool::globalInstance()->waitForDone();
  EXPECT_FALSE(exists(old));
}

TEST_F(ShellTest, MenusItemsAndShortcutsAreInTheirDesktopPlacesAndOnlyOverviewItemsAreOn) {
  start();
  QStringList titles;
  for (QAction* top : window->menuBar()->actions()) titles << top->text().remove('&');
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
  QList<K> claimed;
  for (const auto& [name, keys, enabled] : expected) {
    QAction* item = action(name);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->shortcuts(), keys) << name;
    EXPECT_TRUE(enabled < 0 || item->isEnabled() == (enabled == 1)) << name;
    for (const K& key : keys) EXPECT_FALSE(claimed.contains(key)) << name;  // no key twice
    claimed << keys;
  }
}

TEST_F(ShellTest, SettingsAboutHelpFullScreenAndEditItemsDoTheirWork) {
  start();
  action("settingsAction")->trigger();
  SettingsDialog* settings = app->settingsDialog();
  ASSERT_TRUE(settings && settings->isVisible());
  action("settingsAction")->trigger();  // a second choice shows the same window
  EXPECT_EQ(window->findChildren<SettingsDialog*>().size(), 1);
  // A window of its own, not a sheet: nothing blocks the main window meanwhile.
  EXPECT_EQ(settings->windowModality(), Qt::NonModal);
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
  EXPECT_FALSE(window->hasSheet());
  settings->close();

  action("aboutAction")->trigger();
  AboutDialog* about = app->aboutDialog();
  ASSERT_TRUE(about && about->isVisible());
  EXPECT_EQ(about->findChild<QLabel*>("aboutVersion")->text(), "Version " TW_EXPECTED_VERSION);
  const QString build = about->findChild<QLabel*>("aboutBuild")->text();
  EXPECT_TRUE(QRegularExpression("^Commit ([0-9a-f]{7,}(-modified)?|unknown) — " TW_EXPECTED_BUILD
                                 " build$")
                  .match(build)
                  .hasMatch())
      << build.toStdString();
  auto* close = about->findChild<QPushButton*>("aboutCloseButton");
  EXPECT_TRUE(close->isDefault());
  QTest::mouseClick(close, Qt::LeftButton);
  EXPECT_FALSE(about->isVisible());

  action("helpAction")->trigger();
  auto* help = window->findChild<QMessageBox*>("helpWindow");
  ASSERT_TRUE(help && help->isVisible());
  EXPECT_EQ(help->windowModality(), Qt::ApplicationModal);
  help->close();

  QAction* fullScreen = action("fullScreenAction");
  fullScreen->trigger();
  EXPECT_TRUE(window->isFullScreen());
  EXPECT_EQ(fullScreen->text(), "Exit Full Screen");
  fullScreen->trigger();
  EXPECT_FALSE(window->isFullScreen());
  EXPECT_EQ(fullScreen->text(), "Enter Full Screen");

  // The Edit items act on the focused field.
  auto* field = new QLineEdit("node_modules", window->overviewWidget());
  field->show();
  window->activateWindow();
  field->setFocus();
  QApplication::processEvents();
  if (QApplication::focusWidget() != field) GTEST_SKIP() << "this platform gives no focus";
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
