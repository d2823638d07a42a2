// The browser's breadcrumb bar: "Disks and Folders" to leave the scan, then the path from the
// top of the scan to the folder being viewed, each crumb a button that goes there. Long paths
// keep the first crumb and the last three, with a placeholder for the folders in between.
#pragma once

#include <QWidget>
#include <vector>

#include "scan/scan_node.h"

class QHBoxLayout;

namespace tw {

// The path and its elision.
// `node` and its ancestors up to the top of the tree, top first.
std::vector<ScanNode*> breadcrumbPath(ScanNode* node);
// With more than 5 crumbs: the first, a placeholder (null) and the last 3; otherwise `path`.
std::vector<ScanNode*> elideBreadcrumbs(const std::vector<ScanNode*>& path);

// Widest a crumb button may be; longer names are elided in the middle.
inline constexpr int kBreadcrumbMaximumWidth = 150;
inline constexpr const char* kHiddenFoldersAccessibleName = "Hidden folders in path";

class BreadcrumbBar : public QWidget {
  Q_OBJECT

 public:
  explicit BreadcrumbBar(QWidget* parent = nullptr);

  // Rebuilds the bar for `current` (null leaves only "Disks and Folders").
  void setCurrentNode(ScanNode* current);

 signals:
  void overviewRequested();
  void nodeClicked(tw::ScanNode* node);

 private:
  QHBoxLayout* crumbs_ = nullptr;
};

}  // namespace tw
