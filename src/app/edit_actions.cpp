#include "app/edit_actions.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QLineEdit>
#include <QMetaObject>
#include <QPlainTextEdit>
#include <QTextEdit>
#include <QWidget>

namespace tw {

namespace {

bool canInvoke(const QWidget* widget, const char* slot) {
  if (!widget) return false;
  const QByteArray signature = QByteArray(slot) + "()";
  return widget->metaObject()->indexOfMethod(signature.constData()) >= 0;
}

}  // namespace

EditActions::EditActions(QWidget* window) : QObject(window), window_(window) {
  undo_ = make(QStringLiteral("Undo"), "undo", QStringLiteral("undoAction"));
  undo_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
  redo_ = make(QStringLiteral("Redo"), "redo", QStringLiteral("redoAction"));
  redo_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
  cut_ = make(QStringLiteral("Cut"), "cut", QStringLiteral("cutAction"));
  cut_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_X));
  copy_ = make(QStringLiteral("Copy"), "copy", QStringLiteral("copyAction"));
  copy_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_C));
  paste_ = make(QStringLiteral("Paste"), "paste", QStringLiteral("pasteAction"));
  paste_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_V));
  selectAll_ = make(QStringLiteral("Select All"), "selectAll", QStringLiteral("selectAllAction"));
  selectAll_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_A));
  connect(qApp, &QApplication::focusChanged, this, &EditActions::update);
  update();
}

QAction* EditActions::make(const QString& text, const char* slot, const QString& objectName) {
  auto* action = new QAction(text, this);
  action->setObjectName(objectName);
  const QByteArray method(slot);
  connect(action, &QAction::triggered, this, [this, method] {
    if (QWidget* widget = target(); canInvoke(widget, method.constData())) {
      QMetaObject::invokeMethod(widget, method.constData());
    }
    update();
  });
  return action;
}

QWidget* EditActions::target() const {
  QWidget* focus = QApplication::focusWidget();
  if (!focus || !window_ || focus->window() != window_->window()) return nullptr;
  return focus;
}

void EditActions::update() {
  QWidget* widget = target();
  bool canUndo = canInvoke(widget, "undo");
  bool canRedo = canInvoke(widget, "redo");
  bool canCut = canInvoke(widget, "cut");
  bool canCopy = canInvoke(widget, "copy");
  bool canPaste = canInvoke(widget, "paste");
  if (auto* line = qobject_cast<QLineEdit*>(widget)) {
    canUndo = line->isUndoAvailable();
    canRedo = line->isRedoAvailable();
    canCut =
        line->hasSelectedText() && !line->isReadOnly() && line->echoMode() == QLineEdit::Normal;
    canCopy = line->hasSelectedText() && line->echoMode() == QLineEdit::Normal;
    canPaste = !line->isReadOnly() && !QApplication::clipboard()->text().isEmpty();
  }
  undo_->setEnabled(canUndo);
  redo_->setEnabled(canRedo);
  cut_->setEnabled(canCut);
  copy_->setEnabled(canCopy);
  paste_->setEnabled(canPaste);
  selectAll_->setEnabled(canInvoke(widget, "selectAll"));
}

}  // namespace tw
