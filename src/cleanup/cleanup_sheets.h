// The sheets of a cleanup: the confirmation before anything moves, the result after the move with
// Undo Cleanup, and the outcome of an undo. Each is a window-modal alert in the shared layout,
// built here and opened by CleanupFlow; the texts are functions so they can be checked alone.
#pragma once

#include <QMessageBox>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <optional>

class QPushButton;

namespace tw {

// Texts.
namespace cleanup_text {
// "Delete 1 file?" / "Delete 2 files?"
QString confirmationTitle(std::size_t count);
// "1 file will be deleted, saving you 4.1 KB. It will be moved to the Trash."
QString confirmationText(std::size_t count, uint64_t total);
QString resultTitle(bool failed);
// Without an error: "1 item was moved successfully. …"; with one, the undo hint and `error`.
QString resultText(std::size_t count, const std::optional<QString>& error);
QString undoTitle(std::size_t failures);
QString undoText(std::size_t failures);
}  // namespace cleanup_text

// The confirmation: "Delete" (red, Return) and "Cancel" (Escape).
struct DeleteConfirmation {
  QMessageBox* box = nullptr;
  QPushButton* deleteButton = nullptr;
  QPushButton* cancelButton = nullptr;
};
DeleteConfirmation makeDeleteConfirmation(QWidget* parent, std::size_t count, uint64_t total);

// The result: "Undo Cleanup", "View Trash" and "Done"; a warning when the saved scan could not be
// updated (`error`).
struct CleanupResultSheet {
  QMessageBox* box = nullptr;
  QPushButton* undoButton = nullptr;
  QPushButton* viewTrashButton = nullptr;
  QPushButton* doneButton = nullptr;
};
CleanupResultSheet makeCleanupResult(QWidget* parent, std::size_t count,
                                     const std::optional<QString>& error);

// The outcome of Undo Cleanup, with "OK".
QMessageBox* makeUndoResult(QWidget* parent, std::size_t failures);

}  // namespace tw
