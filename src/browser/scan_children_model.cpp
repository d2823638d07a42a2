#include "browser/scan_children_model.h"

#include <QMimeData>
#include <set>

#include "browser/display_text.h"
#include "platform/file_manager.h"
#include "ui/byte_count.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

ScanChildrenModel::ScanChildrenModel(QObject* parent) : QAbstractTableModel(parent) {}

void ScanChildrenModel::setNodes(std::vector<ScanNode*> nodes) {
  beginResetModel();
  nodes_ = std::move(nodes);
  endResetModel();
}

ScanNode* ScanChildrenModel::nodeAt(const QModelIndex& index) const {
  if (!index.isValid() || index.row() < 0 || index.row() >= static_cast<int>(nodes_.size()))
    return nullptr;
  return nodes_[static_cast<std::size_t>(index.row())];
}

int ScanChildrenModel::rowOf(const ScanNode* node) const {
  for (std::size_t i = 0; i < nodes_.size(); ++i)
    if (nodes_[i] == node) return static_cast<int>(i);
  return -1;
}

void ScanChildrenModel::setIcons(QIcon folder, QIcon file) {
  folderIcon_ = std::move(folder);
  fileIcon_ = std::move(file);
}

int ScanChildrenModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(nodes_.size());
}

int ScanChildrenModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : kColumnCount;
}

QVariant ScanChildrenModel::data(const QModelIndex& index, int role) const {
  const ScanNode* node = nodeAt(index);
  if (!node) return {};
  const bool nameColumn = index.column() == kNameColumn;
  switch (role) {
    case Qt::DisplayRole:
      return nameColumn
                 ? displayText(node->name())
                 : QString::fromStdString(formatByteCount(sizeOf_ ? sizeOf_(node) : node->size()));
    case Qt::ToolTipRole:
      return nameColumn ? displayText(node->name()) : QVariant();
    case Qt::DecorationRole:
      if (!nameColumn) return {};
      return node->isDirectory() && !node->isVirtualNode() ? folderIcon_ : fileIcon_;
    case Qt::TextAlignmentRole:
      return nameColumn ? QVariant() : QVariant(Qt::AlignRight | Qt::AlignVCenter);
    case Qt::ForegroundRole:
      if (node->isSynthetic() || !nameColumn) return toQColor(palette::kSecondaryText);
      return {};
    default:
      return {};
  }
}

QVariant ScanChildrenModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal) return {};
  const bool nameColumn = section == kNameColumn;
  // Each header sits on the side of its column's figures.
  if (role == Qt::TextAlignmentRole)
    return QVariant(Qt::AlignVCenter | (nameColumn ? Qt::AlignLeft : Qt::AlignRight));
  if (role != Qt::DisplayRole) return {};
  return nameColumn ? QStringLiteral("Name") : QStringLiteral("Size");
}

Qt::ItemFlags ScanChildrenModel::flags(const QModelIndex& index) const {
  const ScanNode* node = nodeAt(index);
  if (!node) return Qt::NoItemFlags;
  Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
  // Synthetic entries stand for space, not for an item that could be handed to another program.
  if (!node->isSynthetic()) flags |= Qt::ItemIsDragEnabled;
  return flags;
}

QStringList ScanChildrenModel::mimeTypes() const {
  return {QStringLiteral("text/uri-list"), QString::fromLatin1(kScanNodeMimeType)};
}

QMimeData* ScanChildrenModel::mimeData(const QModelIndexList& indexes) const {
  std::set<int> rows;
  for (const QModelIndex& index : indexes)
    if (const ScanNode* node = nodeAt(index); node && !node->isSynthetic())
      rows.insert(index.row());
  if (rows.empty()) return nullptr;
  QByteArray uris, scanNodes;
  for (int row : rows) {
    const ScanNode* node = nodes_[static_cast<std::size_t>(row)];
    const QByteArray url = fileUrlForPath(node->path());
    uris += url + "\r\n";
    scanNodes +=
        QByteArray::number(static_cast<qlonglong>(node->databaseNodeID())) + ' ' + url + '\n';
  }
  auto* data = new QMimeData();
  data->setData(QStringLiteral("text/uri-list"), uris);
  data->setData(QString::fromLatin1(kScanNodeMimeType), scanNodes);
  return data;
}

Qt::DropActions ScanChildrenModel::supportedDragActions() const {
  return Qt::CopyAction | Qt::MoveAction;
}

}  // namespace tw
