#include "cleanup/delete_queue.h"

#include <algorithm>

#include "platform/paths.h"
#include "ui/byte_count.h"

namespace tw {

ScanNode* nodeForPath(ScanNode* root, std::string_view path) {
  if (!root || path.empty()) return nullptr;
  const std::string wanted = standardizePath(path);
  ScanNode* node = root;
  std::string nodePath = standardizePath(root->path());
  while (node) {
    if (nodePath == wanted) return node;
    if (!isInside(wanted, nodePath)) return nullptr;
    // The next component below this folder, found among its children and its groups' children.
    ScanNode* next = nullptr;
    std::vector<ScanNode*> pending(node->children().begin(), node->children().end());
    while (!pending.empty() && !next) {
      ScanNode* candidate = pending.back();
      pending.pop_back();
      if (candidate->isVirtualNode()) continue;
      if (candidate->isAggregate()) {
        auto inside = candidate->children();
        pending.insert(pending.end(), inside.begin(), inside.end());
        continue;
      }
      const std::string candidatePath = appendPathComponent(nodePath, candidate->name());
      if (isSameOrInside(wanted, candidatePath)) {
        next = candidate;
        nodePath = candidatePath;
      }
    }
    node = next;
  }
  return nullptr;
}

DeleteQueue::DeleteQueue(QObject* parent) : QObject(parent) {}

void DeleteQueue::setScanRoot(ScanNodeRef root) {
  root_ = std::move(root);
  rootPath_ = root_ ? standardizePath(root_->path()) : std::string();
}

uint64_t DeleteQueue::totalSize() const {
  uint64_t total = 0;
  for (const QueuedItem& item : items_) total += item.node->size();
  return total;
}

std::vector<std::string> DeleteQueue::paths() const {
  std::vector<std::string> paths;
  paths.reserve(items_.size());
  for (const QueuedItem& item : items_) paths.push_back(item.path);
  return paths;
}

bool DeleteQueue::collectPath(std::string_view path) {
  return collectNode(nodeForPath(root_.get(), path));
}

bool DeleteQueue::collectNode(ScanNode* node) {
  if (!node || node->size() == 0 || node->isAggregate() || node->isVirtualNode()) return false;
  const std::string path = standardizePath(node->path());
  if (path.empty() || path == rootPath_) return false;
  for (const QueuedItem& item : items_) {
    if (isSameOrInside(path, item.path)) return true;  // already covered
  }
  std::erase_if(items_, [&path](const QueuedItem& item) { return isInside(item.path, path); });
  items_.push_back({node->ref(), path});
  emit changed();
  return true;
}

void DeleteQueue::returnItems(std::vector<int> rows) {
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  bool removed = false;
  for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
    if (*row < 0 || *row >= count()) continue;
    items_.erase(items_.begin() + *row);
    removed = true;
  }
  if (removed) emit changed();
}

void DeleteQueue::removeAll() {
  if (items_.empty()) return;
  items_.clear();
  emit changed();
}

bool DeleteQueue::isNodeRepresented(const ScanNode* node) const {
  if (!node || items_.empty()) return false;
  return isPathRepresented(node->path());
}

bool DeleteQueue::isPathRepresented(std::string_view path) const {
  const std::string standardized = standardizePath(path);
  if (standardized.empty()) return false;
  return std::any_of(items_.begin(), items_.end(), [&standardized](const QueuedItem& item) {
    return isSameOrInside(standardized, item.path);
  });
}

uint64_t DeleteQueue::remainingSize(const ScanNode* node) const {
  if (!node) return 0;
  if (items_.empty() || node->isVirtualNode()) return node->size();
  if (node->isAggregate()) {
    // A group shares its folder's path: only items of the group itself count.
    uint64_t queued = 0;
    for (const QueuedItem& item : items_)
      for (const ScanNode* up = item.node->parent(); up; up = up->parent())
        if (up == node) queued += item.node->size();
    return node->size() > queued ? node->size() - queued : 0;
  }
  const std::string path = standardizePath(node->path());
  uint64_t queued = 0;
  for (const QueuedItem& item : items_) {
    if (isSameOrInside(path, item.path)) return 0;
    if (isInside(item.path, path)) queued += item.node->size();
  }
  return node->size() > queued ? node->size() - queued : 0;
}

bool DeleteQueue::nodeContainsCollectableFile(ScanNode* node) const {
  if (!node || node->isVirtualNode()) return false;
  if (!node->isDirectory()) return !node->isAggregate() && !isNodeRepresented(node);
  for (ScanNode* child : node->children())
    if (nodeContainsCollectableFile(child)) return true;
  return false;
}

namespace collector {

AmountText amountText(uint64_t total) {
  const QString text = QString::fromStdString(formatByteCount(total));
  const qsizetype blank = text.lastIndexOf(QLatin1Char(' '));
  if (blank < 0) return {text, QString()};
  return {text.left(blank), text.mid(blank + 1)};
}

QString statusLine(bool empty, uint64_t total) {
  if (empty) return QStringLiteral("Drag and drop files here to collect them");
  const AmountText parts = amountText(total);
  if (parts.unit.isEmpty()) return QStringLiteral("collected");
  return parts.unit + QStringLiteral(" collected");
}

QString iconAccessibleText(bool empty, uint64_t total, bool expanded) {
  if (empty) return QStringLiteral("Collector empty");
  return QStringLiteral("%1 collected. %2 collector")
      .arg(QString::fromStdString(formatByteCount(total)),
           expanded ? QStringLiteral("Collapse") : QStringLiteral("Expand"));
}

QString toggleAccessibleText(bool expanded) {
  return expanded ? QStringLiteral("Collapse collector") : QStringLiteral("Expand collector");
}

int panelHeight(int rows, int rowHeight) {
  return std::clamp(rows * rowHeight + 30, kMinimumPanelHeight, kMaximumPanelHeight);
}

}  // namespace collector

}  // namespace tw
