// The overview's row widgets: one per disk and one per folder, each drawn from an OverviewRow and
// updated in place when the row's data changes.
#pragma once

#include <QFrame>
#include <string>

#include "overview/overview_controller.h"

class QLabel;
class QPushButton;
class QToolButton;

namespace tw {

class UsageBar;
class Spinner;

class OverviewRowWidget : public QFrame {
  Q_OBJECT
 public:
  explicit OverviewRowWidget(const OverviewRow& row, QWidget* parent = nullptr);
  const std::string& path() const { return path_; }
  bool isDiskRow() const { return disk_; }
  virtual void setRow(const OverviewRow& row) = 0;

  QPushButton* primaryButton() const { return primary_; }
  QToolButton* menuButton() const { return menu_; }
  QLabel* nameLabel() const { return name_; }

 signals:
  void primaryClicked(const std::string& path);
  void favoriteClicked(const std::string& path);
  void menuRequested(const std::string& path, const QPoint& globalPosition);

 protected:
  std::string path_;
  bool disk_ = false;
  QLabel* name_;
  QPushButton* primary_;
  QToolButton* menu_;
};

class DiskRowWidget : public OverviewRowWidget {
  Q_OBJECT
 public:
  explicit DiskRowWidget(const OverviewRow& row, QWidget* parent = nullptr);
  void setRow(const OverviewRow& row) override;

  QLabel* subtitleLabel() const { return subtitle_; }
  QLabel* usedLabel() const { return used_; }
  QLabel* freeLabel() const { return free_; }
  UsageBar* usageBar() const { return bar_; }

 private:
  QLabel* subtitle_;
  QLabel* used_;
  QLabel* free_;
  UsageBar* bar_;
};

class FolderRowWidget : public OverviewRowWidget {
  Q_OBJECT
 public:
  explicit FolderRowWidget(const OverviewRow& row, QWidget* parent = nullptr);
  void setRow(const OverviewRow& row) override;

  QToolButton* starButton() const { return star_; }
  QLabel* statusLabel() const { return status_; }
  QLabel* sizeLabel() const { return size_; }
  Spinner* spinner() const { return spinner_; }

 private:
  QToolButton* star_;
  QLabel* status_;
  QLabel* size_;
  Spinner* spinner_;
};

}  // namespace tw
