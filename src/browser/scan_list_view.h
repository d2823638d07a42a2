// The browser's list view: one row per visible child, kept fast for folders with a hundred
// thousand children (uniform row heights, no per-row widgets). It reports the row under the
// pointer and turns the browser's keys into requests: Return opens, Backspace and Alt+Up go to
// the enclosing folder, Space toggles the preview, Delete (and the context menu's "Add to Delete
// Queue") asks for the selected rows to be queued.
#pragma once

#include <QTreeView>

#include "scan/scan_node.h"

namespace tw {

class ScanListView : public QTreeView {
  Q_OBJECT

 public:
  explicit ScanListView(QWidget* parent = nullptr);
  // A reset of the rows forgets the hovered row.
  void setModel(QAbstractItemModel* model) override;

 signals:
  // The pointer moved onto another row's node, or off every row (null).
  void hoveredNodeChanged(tw::ScanNode* node);
  // Return on the current row or a double-click on a row.
  void openRequested(const QModelIndex& index);
  void parentRequested();
  void previewToggleRequested();
  void collectRequested();
  // Rows are being dragged out of the list (true until the drag ends).
  void rowDragActive(bool active);

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;
  void startDrag(Qt::DropActions supportedActions) override;

 private:
  void setHoveredNode(ScanNode* node);

  ScanNode* hoveredNode_ = nullptr;
};

}  // namespace tw
