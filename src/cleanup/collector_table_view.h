// The Delete Queue's table: one row per queued item (name, size and a remove button that shows
// on the row under the pointer), over a model that reads the DeleteQueue and never changes it.
// Clicking a row's remove button, or Delete on the selected rows, asks for the items to leave.
#pragma once

#include <QAbstractTableModel>
#include <QIcon>
#include <QTableView>
#include <vector>

namespace tw {

class DeleteQueue;

class CollectorModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { kNameColumn = 0, kSizeColumn = 1, kRemoveColumn = 2, kColumnCount = 3 };

  explicit CollectorModel(DeleteQueue* queue, QObject* parent = nullptr);
  void setIcons(QIcon folder, QIcon file);
  // Rereads the queue (a reset).
  void reload();

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

 private:
  DeleteQueue* queue_;
  QIcon folderIcon_, fileIcon_;
};

class CollectorTableView : public QTableView {
  Q_OBJECT

 public:
  static constexpr int kRowHeight = 24;

  explicit CollectorTableView(QWidget* parent = nullptr);
  // The row under the pointer, or -1; reset whenever the rows are reloaded.
  int hoveredRow() const { return hoveredRow_; }
  void resetHoveredRow();

 signals:
  // The remove button of `row` was clicked.
  void removeRequested(int row);
  // Delete or Backspace on the selected rows.
  void removeSelectedRequested(std::vector<int> rows);

 protected:
  void mouseMoveEvent(QMouseEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void setHoveredRow(int row);

  int hoveredRow_ = -1;
};

}  // namespace tw
