// The cleanup as the browser runs it: the confirmation, the wait for the saved scan, the safety
// check over the whole queue, one Trash call on the pool, marking the moved items in the saved
// scan, the result sheet and Undo Cleanup. It holds the last cleanup's pairs so it can be undone
// (or retried after a partial undo). No widget does file or database work: the panel asks this
// controller, which reports back through its signals; the browser reloads its tree when asked.
#pragma once

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QString>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cleanup/cleanup.h"
#include "scan/scan_node.h"

class QWidget;

namespace tw {

class DeleteQueue;

class CleanupFlow : public QObject {
  Q_OBJECT

 public:
  struct Options {
    std::optional<SafetyRule> safety;  // none: SafetyRule::forThisProcess()
    TrashOptions trash;
    // "View Trash": opens a folder in the file manager; null: the desktop's handler.
    std::function<void(const std::string& folder)> openFolder;
    int waitIntervalMs = 250;  // between looks for the saved scan
    unsigned maxWaits = 240;   // looks before the cleanup gives up
    // Marking more moved items than this runs on the pool, so the window keeps painting.
    std::size_t markOnPoolAbove = 500;
  };

  // `window` carries the sheets; the flow reads and empties `queue`.
  CleanupFlow(DeleteQueue* queue, QWidget* window, Options options, QObject* parent = nullptr);
  ~CleanupFlow() override;

  // The scan being cleaned: its path bounds the safety check, its saved scan is marked. Set again
  // after every reload.
  void setScanRoot(ScanNodeRef root);

  // State.
  bool isRunning() const { return running_; }
  unsigned snapshotWaitAttempts() const { return waits_; }
  const TrashMapping& lastTrashMapping() const { return lastTrashMapping_; }
  const std::vector<ScanNodeRef>& lastTrashNodes() const { return lastTrashNodes_; }
  // The sheet now open (confirmation, result or undo outcome), or null.
  QMessageBox* openSheet() const { return sheet_; }

 public slots:
  // Asks for confirmation; nothing when the queue is empty, a confirmation is open or the browser
  // is not on screen.
  void deleteCollectedItems();
  // The cleanup after confirmation.
  void moveCollectedItemsToTrash();
  // Moves the last cleanup's items back where nothing occupies their place, and unmarks them.
  void undoLastCleanup();

 signals:
  // A message for the queue's status line.
  void statusMessage(const QString& text);
  // The queue's own texts apply again.
  void statusCleared();
  // The Delete button is disabled while this is true.
  void runningChanged(bool running);
  // The saved scan changed: the browser reloads its tree, keeping its place.
  void reloadRequested();
  // A sheet was opened on the window.
  void sheetShown(QMessageBox* sheet);

 private:
  void setRunning(bool running);
  void trashReported(const TrashOutcome& outcome, std::shared_ptr<ScanStore> store);
  void finishCleanup(const TrashMapping& mapping, const MarkOutcome& marked);
  void showCleanupResult(std::size_t count, const std::optional<Error>& error);
  void showSheet(QMessageBox* sheet);

  DeleteQueue* queue_;
  QPointer<QWidget> window_;
  Options options_;
  SafetyRule safety_;
  ScanNodeRef root_;
  bool running_ = false;
  unsigned waits_ = 0;
  QPointer<QMessageBox> confirmation_;
  QPointer<QMessageBox> sheet_;
  TrashMapping lastTrashMapping_;
  std::vector<ScanNodeRef> lastTrashNodes_;
  uint64_t generation_ = 0;  // a report from an older cleanup is dropped
};

}  // namespace tw
