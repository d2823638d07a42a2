// The application shell.
//
// Application brings Tarnwell up and owns what lives for the whole run: the single-instance lock
// and the socket through which a later copy hands over, the library folder's housekeeping at
// start, the dark appearance, the menus, the one main window, Settings, About and Help, and the
// scan session. Start-up runs in a fixed order (icon, default preferences, instance lock,
// appearance, scan-marker clean-up, menus, main window, overview, restore of the saved scans off
// the GUI thread); a second copy stops after the lock, hands its activation token to the running
// copy and builds nothing.
//
// The rest of the shell sits beside it: scan_session.h (a scan's life on the application's side:
// marker, saving, completion prompts, progress, restore and forget), main_window.h (the screens),
// instance_lock.h and instance_channel.h. The services it builds on (the scan library, the
// preferences, the GUI executor) live in services/, below the screens.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <memory>

#include "app/about_dialog.h"
#include "app/instance_lock.h"
#include "app/main_window.h"
#include "app/settings_dialog.h"
#include "overview/overview_controller.h"

namespace tw {

class InstanceServer;
class ScanLibrary;
class ScanSession;

// Identity on the desktop: the desktop entry's name (without ".desktop") and the icon resource.
inline constexpr const char* kDesktopFileName = "org.tarnwell.Tarnwell";
inline constexpr const char* kApplicationIconResource = ":/org.tarnwell.Tarnwell.svg";

class Application : public QObject {
  Q_OBJECT
 public:
  enum class Launch { Running, Duplicate };

  explicit Application(QObject* parent = nullptr);
  ~Application() override;  // releases the instance lock; the lock file stays

  // Start-up. A QApplication must exist. Returns Duplicate when another copy holds the lock; that
  // copy has then been asked to come forward and nothing else was done.
  Launch start();

  // The steps start() ran, in order: "icon", "defaults", "lock", then either "forward" or
  // "listen", "appearance", "marker", "menus", "window", "overview", "restore".
  const QStringList& startupSteps() const { return steps_; }

  bool holdsInstanceLock() const { return lock_.isHeld(); }
  MainWindow* mainWindow() const { return window_; }
  SettingsDialog* settingsDialog() const { return settings_; }
  AboutDialog* aboutDialog() const { return about_; }
  // The library folder with the saved scans; it exists once start() has run.
  ScanLibrary* library() const { return library_.get(); }
  // The scan lifecycle on the application's side; it exists once start() has built the window.
  ScanSession* scanSession() const { return session_.get(); }
  // The overview's controller: the running scans and the latest result per location.
  OverviewController* overview() const { return overview_; }

 public slots:
  void showSettings();
  void showAbout();
  void showHelp();
  // Brings the main window forward for a copy started later; `token` is its activation token.
  void activateFromAnotherCopy(const QByteArray& token);
  void quit();

 signals:
  void activatedByAnotherCopy(const QByteArray& token);

 private:
  void applyApplicationIcon();
  bool takeInstanceLock();
  void buildMainWindow();
  // The two screens of the main window: the overview, which runs the scans, and the browser.
  void installScreens();

  QStringList steps_;
  std::unique_ptr<ScanLibrary> library_;
  std::unique_ptr<ScanSession> session_;  // after the library: it is gone before the library
  InstanceLock lock_;
  InstanceServer* server_ = nullptr;
  QPointer<MainWindow> window_;
  QPointer<OverviewController> overview_;
  QPointer<SettingsDialog> settings_;
  QPointer<AboutDialog> about_;
};

}  // namespace tw
