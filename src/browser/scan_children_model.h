// The browser's list: a table model over the rows of one folder (name with a file or folder icon,
// and size), which hands out rows as raw node pointers and drags them as file URLs plus
// Tarnwell's own scan-node type.
#pragma once

#include <QAbstractTableModel>
#include <QIcon>
#include <cstdint>
#include <functional>
#include <vector>

#include "scan/scan_node.h"

namespace tw {

// The private drag type of browser rows: one line per node, "<database id> <file URL>".
inline constexpr const char* kScanNodeMimeType = "application/x-org.tarnwell.Tarnwell.scan-node";

class ScanChildrenModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { kNameColumn = 0, kSizeColumn = 1, kColumnCount = 2 };

  explicit ScanChildrenModel(QObject* parent = nullptr);

  // Rows.
  // Replaces the rows (a reset); the nodes must outlive the model's use of them.
  void setNodes(std::vector<ScanNode*> nodes);
  const std::vector<ScanNode*>& nodes() const { return nodes_; }
  ScanNode* nodeAt(const QModelIndex& index) const;
  // The row showing `node`, or -1.
  int rowOf(const ScanNode* node) const;
  // Icons for folders and files (set by the view's owner; the model makes no platform calls).
  void setIcons(QIcon folder, QIcon file);
  // The size shown for a row (what it will hold once the Delete Queue is cleaned up); null
  // shows scanned sizes.
  void setSizeFunction(std::function<uint64_t(const ScanNode*)> sizeOf) {
    sizeOf_ = std::move(sizeOf);
  }

  // QAbstractTableModel.
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;

  // Dragging rows out.
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QModelIndexList& indexes) const override;
  Qt::DropActions supportedDragActions() const override;

 private:
  std::vector<ScanNode*> nodes_;
  QIcon folderIcon_, fileIcon_;
  std::function<uint64_t(const ScanNode*)> sizeOf_;
};

}  // namespace tw
