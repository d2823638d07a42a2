#include "browser/scan_list_view.h"

#include <QContextMenuEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>

#include "browser/scan_children_model.h"

namespace tw {

ScanListView::ScanListView(QWidget* parent) : QTreeView(parent) {
  setRootIsDecorated(false);
  setItemsExpandable(false);
  setUniformRowHeights(true);
  setAllColumnsShowFocus(true);
  setSelectionMode(QAbstractItemView::ExtendedSelection);
  setSelectionBehavior(QAbstractItemView::SelectRows);
  setEditTriggers(QAbstractItemView::NoEditTriggers);
  setDragEnabled(true);
  setDragDropMode(QAbstractItemView::DragOnly);
  setDefaultDropAction(Qt::CopyAction);
  setMouseTracking(true);
  setTextElideMode(Qt::ElideMiddle);
  header()->setStretchLastSection(false);
  header()->setSectionsMovable(false);
  connect(this, &QTreeView::doubleClicked, this, &ScanListView::openRequested);
}

void ScanListView::setModel(QAbstractItemModel* rows) {
  QTreeView::setModel(rows);
  if (rows)
    connect(rows, &QAbstractItemModel::modelReset, this, [this] { setHoveredNode(nullptr); });
}

void ScanListView::keyPressEvent(QKeyEvent* event) {
  const int key = event->key();
  const Qt::KeyboardModifiers modifiers = event->modifiers() & ~Qt::KeypadModifier;
  if ((key == Qt::Key_Return || key == Qt::Key_Enter) && modifiers == Qt::NoModifier) {
    if (currentIndex().isValid()) emit openRequested(currentIndex());
    return;
  }
  if ((key == Qt::Key_Backspace && modifiers == Qt::NoModifier) ||
      (key == Qt::Key_Up && modifiers == Qt::AltModifier)) {
    emit parentRequested();
    return;
  }
  if (key == Qt::Key_Space && modifiers == Qt::NoModifier) {
    emit previewToggleRequested();
    return;
  }
  if (key == Qt::Key_Delete && modifiers == Qt::NoModifier) {
    if (selectionModel()->hasSelection()) emit collectRequested();
    return;
  }
  QTreeView::keyPressEvent(event);
}

void ScanListView::startDrag(Qt::DropActions supportedActions) {
  emit rowDragActive(true);
  QTreeView::startDrag(supportedActions);  // returns when the drag is over
  emit rowDragActive(false);
}

void ScanListView::contextMenuEvent(QContextMenuEvent* event) {
  const QModelIndex index = indexAt(event->pos());
  if (!index.isValid()) return;
  if (!selectionModel()->isRowSelected(index.row(), index.parent()))
    selectionModel()->setCurrentIndex(
        index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  QMenu menu(this);
  menu.addAction(QStringLiteral("Add to Delete Queue"), this, &ScanListView::collectRequested);
  menu.exec(event->globalPos());
}

void ScanListView::mouseMoveEvent(QMouseEvent* event) {
  QTreeView::mouseMoveEvent(event);
  auto* rows = qobject_cast<ScanChildrenModel*>(model());
  setHoveredNode(rows ? rows->nodeAt(indexAt(event->position().toPoint())) : nullptr);
}

void ScanListView::leaveEvent(QEvent* event) {
  QTreeView::leaveEvent(event);
  setHoveredNode(nullptr);
}

void ScanListView::setHoveredNode(ScanNode* node) {
  if (node == hoveredNode_) return;
  hoveredNode_ = node;
  emit hoveredNodeChanged(node);
}

}  // namespace tw
