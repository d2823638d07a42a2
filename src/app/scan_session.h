// The application's side of a scan's life: the overview runs the scanners and reports to this
// object, which owns what outlives a single screen. A batch of overlapping scans writes the scan
// marker and raises the generation; each completed scan is accepted into the library (saved,
// made current) and offered to the user through the completion prompts; progress goes to the
// window title and the launcher. It also runs the start-up restore and the forget prompt, and
// opens the browser on a result through a factory the browser installs.
#pragma once

#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/launcher_progress.h"
#include "scan/scan_node.h"
#include "services/scan_library.h"

class QMessageBox;
class QWidget;

namespace tw {

class MainWindow;
class ScanCompletionPrompts;

class ScanSession : public QObject {
  Q_OBJECT
 public:
  using BrowserFactory = std::function<QWidget*(ScanNodeRef root)>;
  using RootsHandler = std::function<void(const std::vector<ScanNodeRef>& rootsNewestFirst)>;
  using RootHandler = std::function<void(const ScanNodeRef& root)>;

  // `library` and `window` outlive the session.
  ScanSession(ScanLibrary& library, MainWindow* window,
              std::unique_ptr<LauncherProgress> launcher = std::make_unique<LauncherProgress>(),
              QObject* parent = nullptr);
  ~ScanSession() override;

  // What the screens install. Restored roots and a forgotten root reach the overview through
  // these; roots restored before the overview installs its handler are kept and handed over then.
  void setBrowserFactory(BrowserFactory factory);
  void setRestoreHandler(RootsHandler handler);
  void setForgetCachedScanRootHandler(RootHandler handler);

  // The scan lifecycle (the overview's handlers).
  void beginPersistentScan();
  void endPersistentScanCompleted(bool completed);
  // Saves the result and makes it current; offers it only while the overview shows without a
  // sheet.
  void acceptCompletedScan(const ScanNodeRef& root);
  // Opens the browser on `root` through the factory; false when none is installed.
  bool showBrowserWithRoot(const ScanNodeRef& root);
  void showOverview();

  // Averaged progress of the running scans: the title's percentage and the launcher's bar.
  void showScanProgress(double fraction);
  void clearScanProgress();

  // Taking results off the main screen (the overview's row menu): the forget prompt as a sheet,
  // then the library's answer, with its alert if deleting failed; removing every scan of a
  // location is the library's, its error returned to the caller.
  void forgetScanResult(const ScanNodeRef& root);
  void removeAllScansForPath(const std::string& path,
                             std::function<void(std::optional<Error>)> completion);

  // Start-up: restores the saved scans off the GUI thread; restoreHandedOver() follows.
  void loadCachedScans();

  // A library alert as a window-modal warning with one "OK" button.
  void showAlert(const LibraryAlert& alert);

  ScanCompletionPrompts* prompts() const { return prompts_; }
  LauncherProgress& launcher() { return *launcher_; }
  QMessageBox* forgetPrompt() const;  // the one showing, if any

 signals:
  // The restore has finished and its roots went to the overview (or wait for it).
  void restoreHandedOver();

 private:
  void deliverRestoredRoots(const std::vector<ScanNodeRef>& roots);

  ScanLibrary& library_;
  QPointer<MainWindow> window_;
  std::unique_ptr<LauncherProgress> launcher_;
  ScanCompletionPrompts* prompts_;
  BrowserFactory browserFactory_;
  RootsHandler restoreHandler_;
  RootHandler forgetHandler_;
  std::vector<ScanNodeRef> pendingRestoredRoots_;
};

}  // namespace tw
