// The overview's widget: the disk and folder rows of an OverviewController, the "Scan Folder…"
// and "Add Hard Disk" buttons, the status line, the row menu, drops of folders and disks, and the
// sheets the controller asks for (alerts, the changed-folder choice, Add Hard Disk, Unlock Disk).
#pragma once

#include <QPointer>
#include <QWidget>
#include <string>
#include <vector>

#include "overview/overview_controller.h"

class QLabel;
class QMenu;
class QMessageBox;
class QProgressBar;
class QPushButton;
class QToolButton;
class QVBoxLayout;

namespace tw {

class OverviewRowWidget;
class AddDiskSheet;
class UnlockDiskSheet;

class OverviewView : public QWidget {
  Q_OBJECT
 public:
  explicit OverviewView(OverviewController* controller, QWidget* parent = nullptr);

  OverviewController* controller() const { return controller_; }

  // Row widgets, in row order.
  const std::vector<OverviewRowWidget*>& rowWidgets() const { return rowWidgets_; }
  OverviewRowWidget* rowWidget(const std::string& path) const;
  QLabel* statusLabel() const { return status_; }
  QPushButton* scanFolderButton() const { return scanFolder_; }
  QPushButton* addHardDiskButton() const { return addDisk_; }

  // The row menu of `path`, built as it is shown (the caller owns it).
  QMenu* createRowMenu(const std::string& path);
  // The sheet on screen, if any.
  QWidget* activeSheet() const { return sheet_.data(); }

 public slots:
  void scanFolder();   // "Scan Folder…": choose a folder to add without scanning
  void addHardDisk();  // "Add Hard Disk"
  void confirmRemove(const std::string& path);
  void getInfo(const std::string& path);
  // Items dropped on the window, as a text/uri-list payload; false (with a beep) when none is a
  // local file.
  bool dropUriList(const QByteArray& uriList);

 protected:
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void rebuildRows();
  void showAlert(const QString& message, const QString& informativeText);
  void showChangedFolderChoice(const std::string& path);
  void showUnlockSheet(const std::string& diskPath);
  void showSheet(QWidget* sheet);

  OverviewController* controller_;
  QVBoxLayout* rowsLayout_;
  std::vector<OverviewRowWidget*> rowWidgets_;
  std::vector<OverviewRow> shownRows_;  // what each row widget shows
  QLabel* status_;
  QProgressBar* statusProgress_;
  QToolButton* statusCancel_;
  QPushButton* scanFolder_;
  QPushButton* addDisk_;
  QPointer<QWidget> sheet_;
  QPointer<AddDiskSheet> addDiskSheet_;
  QPointer<UnlockDiskSheet> unlockSheet_;
};

}  // namespace tw
