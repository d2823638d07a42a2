// Scan browser: one scan explored as a sunburst chart beside the list of the folder being viewed.
//
// ScanBrowser owns the navigation state of one scan (the root, the folder being viewed, the node
// previewed by hovering in the chart, the file in the preview window, and the back and forward
// history), the breadcrumb bar, the chart, the list and the preview window. It is the chart's
// delegate: a click on a folder segment opens it, a click on anything else selects its row, and a
// resting hover previews a folder's contents in the list. The application shell wires its Go and
// Action menu items to the public slots and enables them from canGoBack() and friends whenever
// navigationChanged() fires. Nodes are read through the saved scan's lazy children, so only the
// folders the chart and the list show are ever loaded.
#pragma once

#include <QPixmap>
#include <QRect>
#include <QString>
#include <QWidget>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cleanup/cleanup_flow.h"
#include "platform/volume_layout.h"
#include "scan/scan_node.h"

class QLabel;
class QSplitter;

namespace tw {

class BreadcrumbBar;
class CollectorPanel;
class DeleteQueue;
class ElidedLabel;
class PreviewWindow;
class ScanChildrenModel;
class ScanListView;
class SunburstView;

class ScanBrowser : public QWidget {
  Q_OBJECT

 public:
  // What the browser asks of the system; tests put their own in place.
  struct Options {
    // Volume figures for the root's presentation; null: the running system's disks.
    std::shared_ptr<const VolumeLayout> volumeLayout;
    // Opens a folder in the terminal; null: openTerminalInFolder.
    std::function<void(const std::string& folder)> openTerminal;
    // Shows items selected in the file manager; null: revealInFileManager.
    std::function<void(const std::vector<std::string>& paths)> revealInFiles;
    // The Trash, the safety rule and the file manager of the cleanup.
    CleanupFlow::Options cleanup;
  };

  // Prepares `root` for presentation (prepareVolumePresentationForRoot) and shows it.
  explicit ScanBrowser(ScanNodeRef root, QWidget* parent = nullptr);
  ScanBrowser(ScanNodeRef root, Options options, QWidget* parent = nullptr);
  ~ScanBrowser() override;

  // Navigation state.
  ScanNode* scanRoot() const { return scanRoot_.get(); }
  ScanNode* currentNode() const { return currentNode_; }
  ScanNode* summaryNode() const { return summaryNode_; }
  // The node whose children the list shows: the previewed node, else the current folder.
  ScanNode* displayedSummaryNode() const { return summaryNode_ ? summaryNode_ : currentNode_; }
  // The file in the preview window while the window is open.
  ScanNode* previewNode() const;
  const std::vector<ScanNode*>& backHistory() const { return backHistory_; }
  const std::vector<ScanNode*>& forwardHistory() const { return forwardHistory_; }
  Q_INVOKABLE bool canGoBack() const { return !backHistory_.empty(); }
  Q_INVOKABLE bool canGoForward() const { return !forwardHistory_.empty(); }
  Q_INVOKABLE bool canGoToParent() const { return currentNode_ && currentNode_->parent(); }

  // Navigating. Nothing happens when `node` is already current; with `recordHistory` the current
  // folder goes on the back history and the forward history is emptied.
  void navigateToNode(ScanNode* node, bool recordHistory);

  // The list rows of `node`: its children in child order without those of size 0 and those the
  // Delete Queue holds.
  std::vector<ScanNode*> visibleChildrenForNode(ScanNode* node) const;
  // Answers whether a node is hidden as queued; by default the browser's own Delete Queue.
  void setIsNodeRepresentedInCollector(std::function<bool(const ScanNode*)> isRepresented);

  // The Delete Queue and its cleanup.
  DeleteQueue* deleteQueue() const { return queue_; }
  CollectorPanel* collectorPanel() const { return collector_; }
  CleanupFlow* cleanupFlow() const { return cleanup_; }
  Q_INVOKABLE bool canCollectSelectedItem() const;
  Q_INVOKABLE bool hasCollectedItems() const;
  // Rebuilds the tree from the saved scan after a cleanup or an undo: the same folder when it
  // still exists, else its nearest surviving ancestor; the history is cleared.
  void reloadSnapshotPreservingCurrentPath();

  // Parts, for the window and for tests.
  SunburstView* sunburstView() const { return sunburst_; }
  ScanListView* listView() const { return list_; }
  ScanChildrenModel* listModel() const { return rows_; }
  BreadcrumbBar* breadcrumbBar() const { return breadcrumbs_; }
  PreviewWindow* previewWindow() const { return preview_; }
  // The title and size line above the list, as plain text.
  const QString& titleText() const { return titleText_; }
  QString sizeText() const;
  // The read failure shown under the list ("" while none happened).
  QString readErrorText() const;

 public slots:
  // The Go menu.
  void navigateBack();
  void navigateForward();
  void navigateToParent();
  // The Action menu.
  void showCurrentFolderInFiles();
  void openCurrentFolderInTerminal();
  // Space: shows the selected file in the preview window, or closes the window.
  void togglePreview();
  // The Delete Queue: queue the list's selected rows, empty the queue, start the cleanup.
  void collectSelectedItem();
  void removeAllCollectedItems();
  void deleteCollectedItems();

 signals:
  // "Disks and Folders" was clicked.
  void showOverviewRequested();
  // A folder from elsewhere was dropped on the browser to be scanned (raw path bytes).
  void scanDroppedPath(const std::string& path);
  // The tree was replaced after a cleanup (emitted by the Delete Queue's reload).
  void snapshotDidChange(tw::ScanNodeRef root);
  // Back, forward or the enclosing folder became possible or impossible.
  void navigationChanged();
  // The Delete Queue or the list's selection changed (the queue's menu items may change).
  void collectorChanged();
  // The saved scan could not be read; reported once per browser.
  void readErrorReported(const QString& description);

 protected:
  void showEvent(QShowEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  // Chart delegate.
  void sunburstDidChooseNode(ScanNode* node);
  void sunburstDidPreviewNode(ScanNode* node);
  // List requests.
  void openRow(const QModelIndex& index);
  // Shows the current row in the preview window when it is a file; false otherwise.
  bool showPreviewOfSelection();
  // The open preview follows the current row, or closes when that is no file.
  void followCurrentRowInPreview();
  void selectRowOf(ScanNode* node);

  void buildWidgets();
  void refreshAnimated(bool animated);
  void updateTitle();
  void reloadList();
  void reportReadErrorOnce();
  void collectorDidChange();
  // A copy of a row flies from `from` to `to` (browser coordinates), unless motion is reduced.
  void animateRowPicture(const QPixmap& picture, const QRect& from, const QRect& to);
  QRect rectInBrowserForMainRow(int row) const;

  Options options_;
  ScanNodeRef scanRoot_;
  ScanNode* currentNode_ = nullptr;
  ScanNode* summaryNode_ = nullptr;
  ScanNode* previewNode_ = nullptr;
  std::vector<ScanNode*> backHistory_, forwardHistory_;
  // Folders found again after a reload that the fresh root's tree does not hold.
  std::vector<ScanNodeRef> reloadedPath_;
  std::function<bool(const ScanNode*)> isNodeRepresentedInCollector_;
  bool revealed_ = false;
  bool readErrorReported_ = false;
  QString titleText_;

  BreadcrumbBar* breadcrumbs_ = nullptr;
  QSplitter* splitter_ = nullptr;
  SunburstView* sunburst_ = nullptr;
  ElidedLabel* title_ = nullptr;
  QLabel* sizeLine_ = nullptr;
  ScanListView* list_ = nullptr;
  ScanChildrenModel* rows_ = nullptr;
  QLabel* status_ = nullptr;
  PreviewWindow* preview_ = nullptr;
  DeleteQueue* queue_ = nullptr;
  CollectorPanel* collector_ = nullptr;
  CleanupFlow* cleanup_ = nullptr;
};

// Whether a chart click on `node` opens it: a directory that is not virtual and not an empty
// "smaller objects…" group.
bool isOpenableFolder(ScanNode* node);

}  // namespace tw
