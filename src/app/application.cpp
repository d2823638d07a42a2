#include "app/application.h"

#include <QApplication>
#include <QIcon>
#include <QMessageBox>
#include <QThreadPool>
#include <cstdio>
#include <ctime>

#include "app/about_dialog.h"
#include "app/appearance.h"
#include "app/build_info.h"
#include "app/instance_channel.h"
#include "app/main_window.h"
#include "app/menus.h"
#include "app/scan_session.h"
#include "app/settings_dialog.h"
#include "browser/scan_browser.h"
#include "overview/overview_controller.h"
#include "overview/overview_view.h"
#include "platform/paths.h"
#include "services/gui_executor.h"
#include "services/preferences.h"
#include "services/scan_library.h"
#include "ui/alert.h"

namespace tw {

Application::Application(QObject* parent) : QObject(parent) {}

Application::~Application() {
  // The window holds the screens, the controller the running scans; both go before the session
  // and the library they report to.
  delete window_.data();
  delete overview_.data();
  session_.reset();
  lock_.release();
}

Application::Launch Application::start() {
  QCoreApplication::setOrganizationName(QString::fromUtf8(kSettingsOrganization));
  QCoreApplication::setApplicationName(QString::fromUtf8(kSettingsApplication));
  QCoreApplication::setApplicationVersion(applicationVersion());
  // No display name: X11 and Wayland would append it to every title ("Tarnwell — 34% —
  // Tarnwell"). The application name doubles as the X11 window class (WM_CLASS), which the desktop
  // entry names as StartupWMClass; on Wayland the desktop file name is the window's app id.
  QGuiApplication::setDesktopFileName(QString::fromUtf8(kDesktopFileName));

  applyApplicationIcon();
  steps_ << QStringLiteral("icon");

  registerDefaultPreferences();
  steps_ << QStringLiteral("defaults");

  ScanLibrary::Options libraryOptions;
  libraryOptions.mainExecutor = queuedExecutor(this);
  library_ = std::make_unique<ScanLibrary>(std::move(libraryOptions));

  const bool locked = takeInstanceLock();
  steps_ << QStringLiteral("lock");
  if (!locked) {
    // Another copy runs: let it come forward with our activation token, then stop.
    const QByteArray token = qgetenv("XDG_ACTIVATION_TOKEN");
    forwardActivation(instanceSocketPath(library_->libraryFolderPath()), token);
    steps_ << QStringLiteral("forward");
    return Launch::Duplicate;
  }

  server_ = new InstanceServer(this);
  connect(server_, &InstanceServer::activationRequested, this,
          &Application::activateFromAnotherCopy);
  if (!server_->listen(instanceSocketPath(library_->libraryFolderPath()))) {
    std::fprintf(stderr, "Tarnwell: a later copy cannot hand over to this one: %s\n",
                 qPrintable(server_->errorString()));
  }
  steps_ << QStringLiteral("listen");
  // Unfinished writes left by a copy that crashed; only the lock holder may touch them.
  QThreadPool::globalInstance()->start(
      [library = library_.get()] { library->removeStalePendingFiles(std::time(nullptr)); });

  if (auto* app = qobject_cast<QApplication*>(QCoreApplication::instance())) {
    applyDarkAppearance(*app);
  }
  steps_ << QStringLiteral("appearance");

  library_->discardInterruptedScanIfNeeded();
  steps_ << QStringLiteral("marker");

  buildMainWindow();

  window_->showOverview();
  window_->show();
  window_->raise();
  window_->activateWindow();
  steps_ << QStringLiteral("overview");

  // The saved scans come back off the GUI thread; the overview receives them when it is ready.
  session_->loadCachedScans();
  steps_ << QStringLiteral("restore");
  return Launch::Running;
}

void Application::applyApplicationIcon() {
  QIcon icon(QString::fromUtf8(kApplicationIconResource));
  if (!icon.isNull()) QApplication::setWindowIcon(icon);
}

bool Application::takeInstanceLock() {
  const std::string lockPath =
      appendPathComponent(library_->libraryFolderPath(), kInstanceLockFileName);
  if (std::optional<Error> error = lock_.acquire(lockPath)) {
    // Held by another copy, or unusable: either way this copy does not run.
    return false;
  }
  return true;
}

void Application::buildMainWindow() {
  window_ = new MainWindow;
  window_->setMenus(buildMenus(window_, this));
  steps_ << QStringLiteral("menus");
  window_->setWindowIcon(QApplication::windowIcon());
  window_->centreOnScreen();
  connect(window_, &MainWindow::closed, this, &Application::quit, Qt::QueuedConnection);
  session_ = std::make_unique<ScanSession>(*library_, window_);
  installScreens();
  steps_ << QStringLiteral("window");
}

void Application::installScreens() {
  overview_ = new OverviewController;
  OverviewController* overview = overview_;
  ScanSession* session = session_.get();
  ScanLibrary* library = library_.get();

  OverviewController::Handlers handlers;
  handlers.showResult = [session](const ScanNodeRef& root) { session->showBrowserWithRoot(root); };
  handlers.forgetResult = [session](const ScanNodeRef& root) { session->forgetScanResult(root); };
  handlers.removeScansForPath = [session](const std::string& path,
                                          std::function<void(std::optional<Error>)> completion) {
    session->removeAllScansForPath(path, std::move(completion));
  };
  handlers.scanDidBegin = [session] { session->beginPersistentScan(); };
  handlers.scanDidEnd = [session](bool completed) {
    session->endPersistentScanCompleted(completed);
  };
  handlers.scanCompleted = [session](const ScanNodeRef& root) {
    session->acceptCompletedScan(root);
  };
  overview->setHandlers(std::move(handlers));
  connect(overview, &OverviewController::dockProgressChanged, session,
          &ScanSession::showScanProgress);
  connect(overview, &OverviewController::dockProgressCleared, session,
          &ScanSession::clearScanProgress);

  session->setRestoreHandler([overview, library](const std::vector<ScanNodeRef>& roots) {
    overview->restoreCachedScanRoots(roots);
    if (!overview->cachedRoot()) overview->setCachedRoot(library->cachedRoot());
  });
  session->setForgetCachedScanRootHandler(
      [overview](const ScanNodeRef& root) { overview->forgetCachedScanRoot(root); });

  // Coming back to Tarnwell: disks may have been mounted, unmounted or made readable meanwhile.
  connect(qApp, &QGuiApplication::applicationStateChanged, overview,
          [overview](Qt::ApplicationState state) {
            if (state == Qt::ApplicationActive) overview->reloadVolumes();
          });

  auto* view = new OverviewView(overview);
  window_->setOverviewWidget(view);
  window_->setScanFolderHandler([view] { view->scanFolder(); });

  // The browser: opened on a result, it reports drops and replaced trees back to the shell.
  QPointer<MainWindow> window = window_;
  session->setBrowserFactory([overview, library, window](ScanNodeRef root) -> QWidget* {
    overview->setCachedRoot(root);
    auto* browser = new ScanBrowser(std::move(root));
    QObject::connect(
        browser, &ScanBrowser::scanDroppedPath, overview,
        [overview, window](const std::string& path) {
          if (window) window->showOverview();
          overview->scanDroppedURL(path);
        },
        Qt::QueuedConnection);
    QObject::connect(browser, &ScanBrowser::snapshotDidChange, overview,
                     [overview, library](const ScanNodeRef& newRoot) {
                       library->setCachedRoot(newRoot);
                       overview->setCachedRoot(newRoot);
                     });
    return browser;
  });
}

void Application::showSettings() {
  if (!window_) return;
  if (!settings_) {
    settings_ = new SettingsDialog(window_);
    settings_->setAttribute(Qt::WA_DeleteOnClose);
  }
  settings_->show();
  settings_->raise();
  settings_->activateWindow();
}

void Application::showAbout() {
  if (!about_) {
    about_ = new AboutDialog(window_);
    about_->setAttribute(Qt::WA_DeleteOnClose);
  }
  about_->show();
  about_->raise();
  about_->activateWindow();
}

void Application::showHelp() {
  QMessageBox* box = makeAlert(
      window_, QMessageBox::NoIcon, QStringLiteral("Tarnwell Help"),
      QStringLiteral("Choose a disk or folder to scan, then click the sunburst to explore large "
                     "files. Click the center to move up and press Space to preview a selected "
                     "file."));
  box->setObjectName(QStringLiteral("helpWindow"));
  box->setWindowModality(Qt::ApplicationModal);
  box->setWindowTitle(QStringLiteral("Tarnwell Help"));
  box->setIconPixmap(QApplication::windowIcon().pixmap(64, 64));
  box->setStandardButtons(QMessageBox::Ok);
  box->show();
}

void Application::activateFromAnotherCopy(const QByteArray& token) {
  if (window_) {
    if (window_->isMinimized()) {
      window_->showNormal();
    } else {
      window_->show();
    }
    window_->raise();
    // Qt's Wayland plugin hands XDG_ACTIVATION_TOKEN to the compositor when a window asks to be
    // activated, and clears it; the token is the later copy's, so that the compositor lets the
    // window come forward.
    if (!token.isEmpty()) qputenv("XDG_ACTIVATION_TOKEN", token);
    window_->activateWindow();
    qunsetenv("XDG_ACTIVATION_TOKEN");
  }
  emit activatedByAnotherCopy(token);
}

void Application::quit() {
  if (settings_) settings_->close();
  if (about_) about_->close();
  QCoreApplication::quit();
}

}  // namespace tw
