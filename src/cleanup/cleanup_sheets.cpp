#include "cleanup/cleanup_sheets.h"

#include <QPushButton>

#include "ui/alert.h"
#include "ui/byte_count.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

namespace cleanup_text {

QString confirmationTitle(std::size_t count) {
  return QStringLiteral("Delete %1 %2?")
      .arg(count)
      .arg(count == 1 ? QStringLiteral("file") : QStringLiteral("files"));
}

QString confirmationText(std::size_t count, uint64_t total) {
  return QStringLiteral("%1 %2 will be deleted, saving you %3. %4 will be moved to the Trash.")
      .arg(count)
      .arg(count == 1 ? QStringLiteral("file") : QStringLiteral("files"),
           QString::fromStdString(formatByteCount(total)),
           count == 1 ? QStringLiteral("It") : QStringLiteral("They"));
}

QString resultTitle(bool failed) {
  return failed ? QStringLiteral("Files moved, but the saved scan could not be updated")
                : QStringLiteral("Cleanup moved items to the Trash");
}

QString resultText(std::size_t count, const std::optional<QString>& error) {
  if (error) {
    return QStringLiteral(
               "The files are in the Trash and can still be restored with Undo Cleanup. The scan "
               "may continue to show them until you rescan. %1")
        .arg(*error);
  }
  return QStringLiteral("%1 %2 moved successfully. Space is reclaimed when the Trash is emptied.")
      .arg(count)
      .arg(count == 1 ? QStringLiteral("item was") : QStringLiteral("items were"));
}

QString undoTitle(std::size_t failures) {
  return failures == 0 ? QStringLiteral("Cleanup undone")
                       : QStringLiteral("Some items could not be restored");
}

QString undoText(std::size_t failures) {
  if (failures == 0) return QStringLiteral("The items were returned to their original locations.");
  return QStringLiteral(
             "%1 items could not be restored because their original location is unavailable or "
             "already contains an item with the same name.")
      .arg(failures);
}

}  // namespace cleanup_text

namespace {

QString flatButtonStyle(const QColor& background) {
  return QStringLiteral(
             "QPushButton { background: %1; color: white; border: none; border-radius: 7px;"
             " font-size: 13px; font-weight: 500; min-height: 28px; max-height: 28px;"
             " padding: 0 16px; }"
             "QPushButton:focus { outline: none; }")
      .arg(background.name());
}

}  // namespace

DeleteConfirmation makeDeleteConfirmation(QWidget* parent, std::size_t count, uint64_t total) {
  DeleteConfirmation sheet;
  sheet.box = makeAlert(parent, QMessageBox::NoIcon, cleanup_text::confirmationTitle(count),
                        cleanup_text::confirmationText(count, total));
  sheet.box->setObjectName(QStringLiteral("deleteConfirmation"));
  sheet.deleteButton = sheet.box->addButton(QStringLiteral("Delete"), QMessageBox::AcceptRole);
  sheet.cancelButton = sheet.box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
  sheet.deleteButton->setStyleSheet(flatButtonStyle(toQColor(palette::kSystemRed)));
  sheet.cancelButton->setStyleSheet(flatButtonStyle(QColor::fromRgbF(0.3f, 0.3f, 0.3f)));
  // Equal widths: both take the wider one's.
  const int width = std::max(
      {sheet.deleteButton->sizeHint().width(), sheet.cancelButton->sizeHint().width(), 96});
  sheet.deleteButton->setFixedWidth(width);
  sheet.cancelButton->setFixedWidth(width);
  sheet.box->setDefaultButton(sheet.deleteButton);
  sheet.box->setEscapeButton(sheet.cancelButton);
  return sheet;
}

CleanupResultSheet makeCleanupResult(QWidget* parent, std::size_t count,
                                     const std::optional<QString>& error) {
  CleanupResultSheet sheet;
  sheet.box = makeAlert(parent, error ? QMessageBox::Warning : QMessageBox::Information,
                        cleanup_text::resultTitle(error.has_value()),
                        cleanup_text::resultText(count, error));
  sheet.box->setObjectName(QStringLiteral("cleanupResult"));
  sheet.undoButton = sheet.box->addButton(QStringLiteral("Undo Cleanup"), QMessageBox::ActionRole);
  sheet.viewTrashButton =
      sheet.box->addButton(QStringLiteral("View Trash"), QMessageBox::ActionRole);
  // One role for all three keeps them in this order on every desktop's button layout.
  sheet.doneButton = sheet.box->addButton(QStringLiteral("Done"), QMessageBox::ActionRole);
  sheet.box->setDefaultButton(sheet.doneButton);
  sheet.box->setEscapeButton(sheet.doneButton);
  return sheet;
}

QMessageBox* makeUndoResult(QWidget* parent, std::size_t failures) {
  QMessageBox* box =
      makeAlert(parent, failures == 0 ? QMessageBox::Information : QMessageBox::Warning,
                cleanup_text::undoTitle(failures), cleanup_text::undoText(failures));
  box->setObjectName(QStringLiteral("undoResult"));
  box->addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
  return box;
}

}  // namespace tw
