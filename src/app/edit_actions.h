// The Edit menu's standard actions (Undo, Redo, Cut, Copy, Paste, Select All). Each is passed to
// the widget that has the keyboard focus and is enabled only while that widget can perform it,
// so with nothing editable focused they are disabled rather than doing nothing.
#pragma once

#include <QObject>
#include <QPointer>

class QAction;
class QWidget;

namespace tw {

class EditActions : public QObject {
  Q_OBJECT
 public:
  explicit EditActions(QWidget* window);

  QAction* undo() const { return undo_; }
  QAction* redo() const { return redo_; }
  QAction* cut() const { return cut_; }
  QAction* copy() const { return copy_; }
  QAction* paste() const { return paste_; }
  QAction* selectAll() const { return selectAll_; }

  // Re-reads what the focused widget can do now.
  void update();

 private:
  QAction* make(const QString& text, const char* slot, const QString& objectName);
  QWidget* target() const;

  QPointer<QWidget> window_;
  QAction* undo_;
  QAction* redo_;
  QAction* cut_;
  QAction* copy_;
  QAction* paste_;
  QAction* selectAll_;
};

}  // namespace tw
