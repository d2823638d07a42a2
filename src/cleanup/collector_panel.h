// The Delete Queue as the browser shows it: a bar with the queue's icon, its status line and the
// Delete button, above which a panel with the table of queued items opens and closes. The whole
// bar and panel are the drop area: file URLs dropped on it (from the file manager or dragged rows
// of the browser's list) are queued. It draws everything from a DeleteQueue and changes the queue
// only through its gathering and returning operations; the cleanup itself belongs to
// CleanupFlow, which the Delete button asks for.
#pragma once

#include <QPixmap>
#include <QRect>
#include <QString>
#include <QWidget>
#include <string>
#include <vector>

class QLabel;
class QPushButton;
class QVariantAnimation;
class QGraphicsOpacityEffect;

namespace tw {

class CollectorIconView;
class CollectorModel;
class CollectorTableView;
class DeleteQueue;

class CollectorPanel : public QWidget {
  Q_OBJECT

 public:
  explicit CollectorPanel(DeleteQueue* queue, QWidget* parent = nullptr);

  // Parts, for the browser and for tests.
  CollectorIconView* icon() const { return icon_; }
  QLabel* statusLabel() const { return label_; }
  QPushButton* deleteButton() const { return deleteButton_; }
  CollectorTableView* tableView() const { return table_; }
  QWidget* tablePanel() const { return tablePanel_; }
  // The status line as plain text.
  QString statusText() const;
  bool isExpanded() const { return expanded_; }
  // The height the open panel is given (0 before it was first set up).
  int panelHeight() const { return panelHeight_; }

 public slots:
  // Redraws every text and control from the queue.
  void refreshCollector();
  // Opens or closes the table; an empty queue can only close.
  void setCollectorExpanded(bool expanded, bool animated);
  void toggleCollector();
  // A message of the cleanup in the status line, until the queue next changes.
  void showStatusMessage(const QString& text);
  // The Delete button is disabled while a cleanup runs.
  void setCleanupRunning(bool running);
  // The items at `rows` go back to the browser.
  void returnRows(std::vector<int> rows);

 signals:
  // The Delete button was clicked.
  void deleteRequested();
  // Queued items went back to the browser; the first one's path, and a picture of its row at
  // `rect` (in this panel's coordinates), for the flight back to the list.
  void itemReturned(const std::string& path, const QPixmap& picture, const QRect& rect);

 protected:
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragLeaveEvent(QDragLeaveEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void applyPanelHeight(bool animated);

  DeleteQueue* queue_;
  CollectorIconView* icon_ = nullptr;
  QLabel* label_ = nullptr;
  QPushButton* deleteButton_ = nullptr;
  QWidget* tablePanel_ = nullptr;
  QGraphicsOpacityEffect* fade_ = nullptr;
  CollectorTableView* table_ = nullptr;
  CollectorModel* model_ = nullptr;
  QVariantAnimation* animation_ = nullptr;
  bool expanded_ = false;
  int panelHeight_ = 0;
  QString plainStatus_;
};

}  // namespace tw
