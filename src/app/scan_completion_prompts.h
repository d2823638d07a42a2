// The queue of finished scans waiting to be offered: "Do you want to view the scan results for
// “%@”?" as a sheet on the main window, one result after another. A result is presented 0.15 s
// after it is queued, so scans that finish together line up behind one prompt. When the window no
// longer shows the overview, or another sheet is up, the whole queue is dropped. "Yes" opens the
// browser on that result; it is disabled while no browser can be opened.
#pragma once

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QPushButton>
#include <deque>
#include <functional>
#include <string>

#include "scan/scan_node.h"

class QTimer;

namespace tw {

class MainWindow;

inline constexpr const char* kScanCompletionPromptFormat =
    "Do you want to view the scan results for “%@”?";
inline constexpr const char* kScanCompletionYesButton = "Yes";
inline constexpr const char* kScanCompletionCancelButton = "Cancel";
inline constexpr int kScanCompletionPromptDelayMs = 150;
// The name of "/" when its file system has no label.
inline constexpr const char* kRootDiskFallbackName = "Root Disk";

// The name a prompt gives a result: the root's name, else its path's last component; for "/" (or
// nothing at all) `rootDiskName`.
std::string scanResultDisplayName(const ScanNode& root, const std::string& rootDiskName);
// The root file system's label, else "Root Disk".
std::string rootDiskName();

class ScanCompletionPrompts : public QObject {
  Q_OBJECT
 public:
  explicit ScanCompletionPrompts(MainWindow* window, QObject* parent = nullptr);

  // What "Yes" does; while none is installed "Yes" is disabled.
  void setViewHandler(std::function<void(const ScanNodeRef& root)> view);
  // Where the name of "/" comes from (the root file system's label by default).
  void setRootDiskNameProvider(std::function<std::string()> provider);

  // Queues `root` and schedules the next prompt.
  void offer(ScanNodeRef root);
  // 0.15 s from now, present the next prompt, unless one shows or a check is already scheduled.
  void scheduleNext();
  // Shows the first queued result, or drops the queue when the overview is not showing or a sheet
  // is up.
  void presentNext();

  // State, for the shell and tests.
  std::size_t queuedCount() const { return queue_.size(); }
  bool isCheckScheduled() const { return scheduled_; }
  bool isPresenting() const { return presenting_; }
  QMessageBox* currentPrompt() const { return prompt_; }

 private:
  void finished(const ScanNodeRef& root, bool accepted);

  QPointer<MainWindow> window_;
  std::deque<ScanNodeRef> queue_;
  bool scheduled_ = false;
  bool presenting_ = false;
  QPointer<QMessageBox> prompt_;
  QPointer<QPushButton> yes_;
  QTimer* timer_;
  std::function<void(const ScanNodeRef&)> view_;
  std::function<std::string()> rootDiskName_;
};

}  // namespace tw
