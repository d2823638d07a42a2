#include "cleanup/cleanup_flow.h"

#include <QDesktopServices>
#include <QFutureWatcher>
#include <QPromise>
#include <QPushButton>
#include <QThreadPool>
#include <QTimer>
#include <QUrl>

#include "cleanup/cleanup_sheets.h"
#include "cleanup/delete_queue.h"
#include "platform/file_manager.h"
#include "platform/paths.h"
#include "platform/real_path_cache.h"
#include "store/scan_store.h"

namespace tw {

namespace {

const QString kWaitingText = QStringLiteral("Finishing the saved scan before cleanup…");
const QString kGaveUpText =
    QStringLiteral("Cleanup stopped because the saved scan could not be updated.");
const QString kUnsafeText = QStringLiteral("Deletion stopped: an item failed the safety check.");
const QString kMovingText = QStringLiteral("Moving items to Trash…");

// Runs `work` on the pool; `done` gets its result on `context`'s thread through the watcher's
// queued signal, and never runs once `context` is gone.
template <typename T>
void runOnPool(QObject* context, std::function<T()> work, std::function<void(const T&)> done) {
  auto* watcher = new QFutureWatcher<T>(context);
  QObject::connect(watcher, &QFutureWatcher<T>::finished, context, [watcher, done] {
    done(watcher->result());
    watcher->deleteLater();
  });
  auto promise = std::make_shared<QPromise<T>>();
  watcher->setFuture(promise->future());
  promise->start();
  QThreadPool::globalInstance()->start([promise, work] {
    promise->addResult(work());
    promise->finish();
  });
}

}  // namespace

CleanupFlow::CleanupFlow(DeleteQueue* queue, QWidget* window, Options options, QObject* parent)
    : QObject(parent),
      queue_(queue),
      window_(window),
      options_(std::move(options)),
      safety_(options_.safety ? *options_.safety : SafetyRule::forThisProcess()) {
  if (!options_.openFolder) {
    options_.openFolder = [](const std::string& folder) {
      QDesktopServices::openUrl(QUrl::fromEncoded(fileUrlForPath(folder)));
    };
  }
}

CleanupFlow::~CleanupFlow() = default;

void CleanupFlow::setScanRoot(ScanNodeRef root) {
  root_ = std::move(root);
}

void CleanupFlow::setRunning(bool running) {
  if (running == running_) return;
  running_ = running;
  emit runningChanged(running);
}

void CleanupFlow::showSheet(QMessageBox* sheet) {
  sheet_ = sheet;
  sheet->open();
  emit sheetShown(sheet);
}

// --- Confirmation ----------------------------------------------------------------------------

void CleanupFlow::deleteCollectedItems() {
  if (queue_->isEmpty() || confirmation_ || !window_ || !window_->isVisible() || running_) return;
  DeleteConfirmation sheet =
      makeDeleteConfirmation(window_, queue_->collectedNodes().size(), queue_->totalSize());
  confirmation_ = sheet.box;
  QPushButton* deleteButton = sheet.deleteButton;
  connect(sheet.box, &QMessageBox::finished, this, [this, box = sheet.box, deleteButton] {
    const bool confirmed = box->clickedButton() == deleteButton;
    confirmation_ = nullptr;
    if (confirmed) moveCollectedItemsToTrash();
  });
  showSheet(sheet.box);
}

// --- Moving ----------------------------------------------------------------------------------

void CleanupFlow::moveCollectedItemsToTrash() {
  std::shared_ptr<ScanStore> store = root_ ? root_->scanStore() : nullptr;
  if (!store) {
    // The saved scan is still being written: look again shortly, for about a minute.
    setRunning(true);
    emit statusMessage(kWaitingText);
    if (waits_++ >= options_.maxWaits) {
      waits_ = 0;
      setRunning(false);
      emit statusMessage(kGaveUpText);
      return;
    }
    QTimer::singleShot(options_.waitIntervalMs, this, &CleanupFlow::moveCollectedItemsToTrash);
    return;
  }
  waits_ = 0;
  const std::vector<std::string> paths = queue_->paths();
  if (paths.empty()) {
    setRunning(false);
    emit statusCleared();
    return;
  }
  // The whole queue passes the check before anything moves.
  const std::string rootPath = root_->path();
  const SafetyCheck check(rootPath, safety_);
  RealPathCache folders;  // items of one folder share its resolved links
  for (const std::string& path : paths) {
    if (!check.isSafe(path, folders)) {
      setRunning(false);
      emit statusMessage(kUnsafeText);
      return;
    }
  }
  setRunning(true);
  emit statusMessage(kMovingText);
  const uint64_t generation = ++generation_;
  runOnPool<TrashOutcome>(
      this,
      [paths, rootPath, safety = safety_, trash = options_.trash] {
        return moveItemsToTrash(paths, rootPath, safety, trash);
      },
      [this, generation, store](const TrashOutcome& outcome) {
        if (generation == generation_) trashReported(outcome, store);
      });
}

void CleanupFlow::trashReported(const TrashOutcome& outcome, std::shared_ptr<ScanStore> store) {
  setRunning(false);
  switch (outcome.status) {
    case TrashOutcome::Status::UnsafeItem:
      emit statusMessage(kUnsafeText);
      return;
    case TrashOutcome::Status::TrashFailed:
      emit statusMessage(outcome.error ? QString::fromStdString(outcome.error->description)
                                       : QString());
      return;
    case TrashOutcome::Status::Moved:
      break;
  }
  const TrashMapping mapping = outcome.mapping;
  if (mapping.size() <= options_.markOnPoolAbove) {
    finishCleanup(mapping, markMovedItems(*store, mapping));
    return;
  }
  // Many items: the database work runs on the pool while the queue's controls stay disabled.
  setRunning(true);
  const uint64_t generation = generation_;
  runOnPool<MarkOutcome>(
      this, [store, mapping] { return markMovedItems(*store, mapping); },
      [this, generation, mapping](const MarkOutcome& marked) {
        if (generation != generation_) return;
        setRunning(false);
        finishCleanup(mapping, marked);
      });
}

void CleanupFlow::finishCleanup(const TrashMapping& mapping, const MarkOutcome& marked) {
  lastTrashMapping_ = mapping;
  lastTrashNodes_ = marked.error ? std::vector<ScanNodeRef>{} : marked.markedNodes;
  queue_->removeAll();
  emit statusCleared();
  emit reloadRequested();
  showCleanupResult(mapping.size(), marked.error);
}

void CleanupFlow::showCleanupResult(std::size_t count, const std::optional<Error>& error) {
  if (count == 0 || !window_) return;
  std::optional<QString> description;
  if (error) description = QString::fromStdString(error->description);
  CleanupResultSheet sheet = makeCleanupResult(window_, count, description);
  QPushButton* undo = sheet.undoButton;
  QPushButton* viewTrash = sheet.viewTrashButton;
  connect(sheet.box, &QMessageBox::finished, this, [this, box = sheet.box, undo, viewTrash] {
    QAbstractButton* clicked = box->clickedButton();
    if (clicked == viewTrash) options_.openFolder(homeTrashFilesFolder(options_.trash));
    // After the sheet has gone, so the undo's own sheet can open on the window.
    if (clicked == undo) QTimer::singleShot(0, this, &CleanupFlow::undoLastCleanup);
  });
  showSheet(sheet.box);
}

// --- Undo ------------------------------------------------------------------------------------

void CleanupFlow::undoLastCleanup() {
  if (lastTrashMapping_.empty()) return;
  const TrashRestoreOutcome restored = restoreItems(lastTrashMapping_, options_.trash);
  std::size_t failures = restored.failedNames.size();

  std::shared_ptr<ScanStore> store = root_ ? root_->scanStore() : nullptr;
  Error error;
  // The saved scan counts as one more item that could not be restored.
  if (store && !unmarkRestoredItems(*store, lastTrashNodes_, restored.restoredPaths, &error))
    ++failures;
  lastTrashMapping_ = restored.remaining;
  if (lastTrashMapping_.empty()) lastTrashNodes_.clear();
  emit reloadRequested();
  if (window_) showSheet(makeUndoResult(window_, failures));
}

}  // namespace tw
