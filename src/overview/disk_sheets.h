// The Add Hard Disk sheet (a list of mounted disks without a row) and the Unlock Disk sheet (a drop
// target that expects one disk). Both are window-modal dialogs; the controller decides what a
// choice or a drop means.
#pragma once

#include <QAbstractListModel>
#include <QDialog>
#include <QFrame>
#include <string>
#include <vector>

#include "overview/overview_controller.h"

class QListView;
class QPushButton;

namespace tw {

// The disks offered by Add Hard Disk: name, and "%@ • %@" with capacity and kind.
class AddDiskModel : public QAbstractListModel {
  Q_OBJECT
 public:
  enum Role { kPathRole = Qt::UserRole + 1, kDetailRole };
  explicit AddDiskModel(QObject* parent = nullptr);
  void setDisks(std::vector<OverviewDisk> disks);
  const std::vector<OverviewDisk>& disks() const { return disks_; }

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  static QString detailText(const OverviewDisk& disk);

 private:
  std::vector<OverviewDisk> disks_;
};

class AddDiskSheet : public QDialog {
  Q_OBJECT
 public:
  explicit AddDiskSheet(QWidget* parent = nullptr);
  AddDiskModel* model() const { return model_; }
  QListView* listView() const { return list_; }
  QPushButton* openButton() const { return open_; }
  void openSelected();

 signals:
  void diskChosen(const std::string& path);

 private:
  AddDiskModel* model_;
  QListView* list_;
  QPushButton* open_;
};

// Accepts one dropped file or folder (text/uri-list) and hands on its raw path.
class DiskDropTarget : public QFrame {
  Q_OBJECT
 public:
  explicit DiskDropTarget(QWidget* parent = nullptr);
  QSize sizeHint() const override { return {320, 120}; }

 signals:
  void pathDropped(const std::string& path);

 protected:
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragLeaveEvent(QDragLeaveEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  bool hovering_ = false;
};

class UnlockDiskSheet : public QDialog {
  Q_OBJECT
 public:
  explicit UnlockDiskSheet(QWidget* parent = nullptr);
  DiskDropTarget* dropTarget() const { return target_; }

 private:
  DiskDropTarget* target_;
};

// The raw paths of the local files in a text/uri-list payload.
std::vector<std::string> pathsFromUriList(const QByteArray& uriList);

}  // namespace tw
