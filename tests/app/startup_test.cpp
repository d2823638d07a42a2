#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QLabel>
#include <QProxyStyle>
#include <QStyle>
#include <QThreadPool>
#include <QTimer>

#include "app/application.h"
#include "app/instance_lock.h"
#include "app/main_window.h"
#include "gtest/gtest.h"
#include "overview/overview_view.h"
#include "services/preferences.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

void touch(const std::string& path, time_t mtime) {
  test::writeFile(path, "x");
  struct timespec times[2] = {{mtime, 0}, {mtime, 0}};
  ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

// Two colours are the same to the eye when no 8-bit channel differs by more than one.
void expectColour(const QColor& actual, double r, double g, double b, double a = 1.0) {
  EXPECT_NEAR(actual.redF(), r, 1.0 / 255) << actual.name(QColor::HexArgb).toStdString();
  EXPECT_NEAR(actual.greenF(), g, 1.0 / 255) << actual.name(QColor::HexArgb).toStdString();
  EXPECT_NEAR(actual.blueF(), b, 1.0 / 255) << actual.name(QColor::HexArgb).toStdString();
  EXPECT_NEAR(actual.alphaF(), a, 1.0 / 255);
}

TEST(Startup, RunsEveryStepShowsTheDarkMainWindowAndReleasesTheLockOnExit) {
  test::DesktopEnvironment env;
  const std::string lock = env.libraryFolder() + "/Instance.lock";
  const std::string marker = env.libraryFolder() + "/ScanInProgress";
  test::writeFile(marker, "");
  {
    Application app;
    ASSERT_EQ(app.start(), Application::Launch::Running);
    EXPECT_EQ(app.startupSteps(),
              QStringList({"icon", "defaults", "lock", "listen", "appearance", "marker", "menus",
                           "window", "overview", "restore"}));
    EXPECT_FALSE(exists(marker));
    EXPECT_TRUE(app.holdsInstanceLock());
    InstanceLock other;
    EXPECT_TRUE(other.acquire(lock).has_value());
    EXPECT_TRUE(defaultPreferencesRegistered());
    EXPECT_FALSE(QApplication::windowIcon().isNull());
    EXPECT_EQ(QGuiApplication::desktopFileName(), "org.tarnwell.Tarnwell");

    MainWindow* window = app.mainWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->windowTitle(), "Tarnwell");
    EXPECT_EQ(window->size(), QSize(980, 650));
    window->resize(500, 300);
    EXPECT_EQ(window->size(), QSize(760, 500));  // the minimum
    ASSERT_NE(qobject_cast<OverviewView*>(window->overviewWidget()), nullptr);
    EXPECT_TRUE(window->isShowingOverview());
    EXPECT_TRUE(window->overviewWidget()->isVisible());
    EXPECT_TRUE(window->menus().scanFolder->isEnabled());

    // The dark appearance is Fusion with Tarnwell's colours.
    auto* style = qobject_cast<QProxyStyle*>(QApplication::style());
    ASSERT_NE(style, nullptr);
    EXPECT_EQ(style->baseStyle()->name(), "fusion");
    const QPalette palette = window->palette();
    expectColour(palette.color(QPalette::Window), 0.105, 0.114, 0.137);
    expectColour(palette.color(QPalette::Base), 0.135, 0.145, 0.172);
    expectColour(palette.color(QPalette::WindowText), 0.92, 0.92, 0.92);
    expectColour(palette.color(QPalette::Text), 0.92, 0.92, 0.92);
    expectColour(palette.color(QPalette::PlaceholderText), 0.62, 0.62, 0.62);
    expectColour(palette.color(QPalette::Highlight), 0x0A / 255.0, 0x84 / 255.0, 1.0);
    // What is painted, not only what is set: a corner of the overview is the background.
    const QImage image = window->overviewWidget()->grab().toImage();
    ASSERT_FALSE(image.isNull());
    expectColour(image.pixelColor(4, 4), 0.105, 0.114, 0.137);
    QThreadPool::globalInstance()->waitForDone();
  }
  // Exit releases the lock and keeps the lock file.
  EXPECT_TRUE(exists(lock));
  InstanceLock next;
  EXPECT_FALSE(next.acquire(lock).has_value());
}

TEST(Startup, ClosingTheMainWindowQuitsTheApplication) {
  test::DesktopEnvironment env;
  Application app;
  ASSERT_EQ(app.start(), Application::Launch::Running);
  QTimer::singleShot(0, app.mainWindow(), [&] { app.mainWindow()->close(); });
  QTimer guard;
  guard.setSingleShot(true);
  QObject::connect(&guard, &QTimer::timeout, [] { QCoreApplication::exit(99); });
  guard.start(5000);
  EXPECT_EQ(QCoreApplication::exec(), 0);
  QThreadPool::globalInstance()->waitForDone();
}

TEST(Startup, LeftoverPendingFilesAreRemovedOnlyWhenOldOnceTheLockIsHeld) {
  test::DesktopEnvironment env;
  const std::string library = env.libraryFolder();
  const time_t now = ::time(nullptr);
  const time_t old = now - 11 * 60;
  touch(library + "/LastScan-0F2A.pending", old);
  touch(library + "/LastScan-FRESH.pending", now - 60);
  touch(library + "/History/.1700000000000-AB.sqlite-CD.pending", old);
  touch(library + "/History/1700000000000-AB.sqlite", old);
  touch(library + "/notes.txt", old);

  {
    // A second copy never touches the files: it does not get the lock.
    InstanceLock running;
    ASSERT_FALSE(running.acquire(library + "/Instance.lock").has_value());
    Application second;
    // Nobody listens, so the hand-over gives up after its timeout; the files stay.
    EXPECT_EQ(second.start(), Application::Launch::Duplicate);
    QThreadPool::globalInstance()->waitForDone();
    EXPECT_TRUE(exists(library + "/LastScan-0F2A.pending"));
    EXPECT_EQ(second.mainWindow(), nullptr);
  }

  Application app;
  ASSERT_EQ(app.start(), Application::Launch::Running);
  QThreadPool::globalInstance()->waitForDone();
  EXPECT_FALSE(exists(library + "/LastScan-0F2A.pending"));
  EXPECT_FALSE(exists(library + "/History/.1700000000000-AB.sqlite-CD.pending"));
  EXPECT_TRUE(exists(library + "/LastScan-FRESH.pending"));
  EXPECT_TRUE(exists(library + "/History/1700000000000-AB.sqlite"));
  EXPECT_TRUE(exists(library + "/notes.txt"));
}

}  // namespace
}  // namespace tw
