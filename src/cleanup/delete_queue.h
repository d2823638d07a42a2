// The Delete Queue: the items of one scan the user has gathered to move to the Trash, without any
// widget. It owns the queued nodes (in the order they came) and keeps them free of overlap: no
// queued item lies inside another, so a folder replaces the files below it and a file inside a
// queued folder is already covered. Items are compared by path. The browser hides every node the
// queue represents from its list and chart; the queue's widgets and the cleanup draw their texts
// and totals from here.
#pragma once

#include <QObject>
#include <QString>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "scan/scan_node.h"

namespace tw {

// One queued item: the node (which keeps its tree alive) and its path, taken once.
struct QueuedItem {
  ScanNodeRef node;
  std::string path;
};

// The node for `path` in the tree below `root` (looking inside "smaller objects…" groups), or
// null. Only the folders on the way are loaded.
ScanNode* nodeForPath(ScanNode* root, std::string_view path);

class DeleteQueue : public QObject {
  Q_OBJECT

 public:
  explicit DeleteQueue(QObject* parent = nullptr);

  // The scan the items come from: its root can never be queued, and paths are looked up below it.
  // Replacing the root keeps queued items (they are compared by path).
  void setScanRoot(ScanNodeRef root);

  // Contents.
  const std::vector<QueuedItem>& collectedNodes() const { return items_; }
  bool isEmpty() const { return items_.empty(); }
  int count() const { return static_cast<int>(items_.size()); }
  uint64_t totalSize() const;
  std::vector<std::string> paths() const;

  // Gathering. Refused (false, nothing changes): no node, size 0, a "smaller objects…" group, a
  // virtual entry, the scan root. An item already queued or inside a queued folder is accepted
  // with nothing changed; queued items inside the new one leave the queue.
  bool collectPath(std::string_view path);
  bool collectNode(ScanNode* node);
  // Returning: the items at `rows` leave the queue; empties it.
  void returnItems(std::vector<int> rows);
  void removeAll();

  // Questions the browser asks.
  // The node or one of its ancestors is queued.
  bool isNodeRepresented(const ScanNode* node) const;
  bool isPathRepresented(std::string_view path) const;
  // What `node` will still hold after a cleanup: 0 when it is represented, else its size less
  // the queued items inside it.
  uint64_t remainingSize(const ScanNode* node) const;
  // Something below `node` (or the node itself, a file) could still be queued.
  bool nodeContainsCollectableFile(ScanNode* node) const;

 signals:
  // Items came or left.
  void changed();

 private:
  ScanNodeRef root_;
  std::string rootPath_;
  std::vector<QueuedItem> items_;
};

// Texts and sizes of the queue's controls, derived from the queued total.
namespace collector {

// The total split at the last blank of its byte-count text: "999" and "B" for 999 bytes.
struct AmountText {
  QString amount;
  QString unit;  // empty when the text has no blank
};
AmountText amountText(uint64_t total);
// The status line: the unit followed by " collected", or "collected" alone; for an empty queue
// "Drag and drop files here to collect them".
QString statusLine(bool empty, uint64_t total);
// The icon's accessibility text after a refresh.
QString iconAccessibleText(bool empty, uint64_t total, bool expanded);
// The icon's accessibility text right after the panel opened or closed.
QString toggleAccessibleText(bool expanded);
// The open panel's height: rows × row height + 30, kept within 104 … 190.
int panelHeight(int rows, int rowHeight);

inline constexpr int kMinimumPanelHeight = 104;
inline constexpr int kMaximumPanelHeight = 190;

}  // namespace collector

}  // namespace tw
