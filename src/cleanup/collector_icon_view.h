// The Delete Queue's icon: a tray that shows the queued amount ("999", "1.2") and its state (empty
// or holding items, panel open, rows being dragged, a drag over the queue). Clicking it opens or
// closes the panel.
#pragma once

#include <QString>
#include <QWidget>

namespace tw {

class CollectorIconView : public QWidget {
  Q_OBJECT

 public:
  explicit CollectorIconView(QWidget* parent = nullptr);

  // State shown.
  void setAmountText(const QString& amount);
  const QString& amountText() const { return amount_; }
  void setHasCollectedItems(bool on);
  bool hasCollectedItems() const { return hasItems_; }
  void setExpanded(bool on);
  bool isExpanded() const { return expanded_; }
  void setDropTarget(bool on);
  bool isDropTarget() const { return dropTarget_; }
  // Rows are being dragged somewhere in the window and could be dropped here.
  void setDragAvailable(bool on);
  bool isDragAvailable() const { return dragAvailable_; }

  QSize sizeHint() const override { return {54, 46}; }

 signals:
  void clicked();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  QString amount_;
  bool hasItems_ = false;
  bool expanded_ = false;
  bool dropTarget_ = false;
  bool dragAvailable_ = false;
};

}  // namespace tw
