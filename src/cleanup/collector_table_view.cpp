#include "cleanup/collector_table_view.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyledItemDelegate>

#include "cleanup/delete_queue.h"
#include "ui/byte_count.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

constexpr int kSizeColumnWidth = 76;
constexpr int kRemoveColumnWidth = 26;

QString nameText(std::string_view name) {
  QString text = QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
  for (QChar& c : text)
    if (c.unicode() < 0x20 || c.unicode() == 0x7f) c = QChar(QChar::ReplacementCharacter);
  return text;
}

// Paints the hovered row's tint and, on that row only, the remove button.
class CollectorRowDelegate : public QStyledItemDelegate {
 public:
  explicit CollectorRowDelegate(CollectorTableView* view)
      : QStyledItemDelegate(view), view_(view) {}

  void paint(QPainter* p, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    const bool hovered = index.row() == view_->hoveredRow();
    if (hovered) p->fillRect(option.rect, QColor(255, 255, 255, 18));
    if (index.column() != CollectorModel::kRemoveColumn) {
      QStyleOptionViewItem plain = option;
      plain.state &= ~QStyle::State_MouseOver;
      QStyledItemDelegate::paint(p, plain, index);
      return;
    }
    if (!hovered) return;
    p->save();
    p->setRenderHint(QPainter::Antialiasing);
    const QRectF circle(option.rect.center().x() - 7.5, option.rect.center().y() - 7.5, 15, 15);
    p->setPen(Qt::NoPen);
    p->setBrush(QColor(255, 255, 255, 60));
    p->drawEllipse(circle);
    p->setPen(QPen(toQColor(palette::kPrimaryText), 1.4, Qt::SolidLine, Qt::RoundCap));
    const QPointF c = circle.center();
    p->drawLine(c + QPointF(-3, -3), c + QPointF(3, 3));
    p->drawLine(c + QPointF(-3, 3), c + QPointF(3, -3));
    p->restore();
  }

 private:
  CollectorTableView* view_;
};

}  // namespace

CollectorModel::CollectorModel(DeleteQueue* queue, QObject* parent)
    : QAbstractTableModel(parent), queue_(queue) {}

void CollectorModel::setIcons(QIcon folder, QIcon file) {
  folderIcon_ = std::move(folder);
  fileIcon_ = std::move(file);
}

void CollectorModel::reload() {
  beginResetModel();
  endResetModel();
}

int CollectorModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : queue_->count();
}

int CollectorModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : kColumnCount;
}

QVariant CollectorModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= queue_->count()) return {};
  const QueuedItem& item = queue_->collectedNodes()[static_cast<size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
      if (index.column() == kNameColumn) return nameText(item.node->name());
      if (index.column() == kSizeColumn)
        return QString::fromStdString(formatByteCount(item.node->size()));
      return {};
    case Qt::ToolTipRole:
      if (index.column() == kRemoveColumn) return QStringLiteral("Remove from Delete Queue");
      return nameText(item.path);
    case Qt::AccessibleTextRole:
      if (index.column() == kRemoveColumn) return QStringLiteral("Remove from Delete Queue");
      return {};
    case Qt::DecorationRole:
      if (index.column() == kNameColumn) return item.node->isDirectory() ? folderIcon_ : fileIcon_;
      return {};
    case Qt::TextAlignmentRole:
      if (index.column() == kSizeColumn) return int(Qt::AlignRight | Qt::AlignVCenter);
      return int(Qt::AlignLeft | Qt::AlignVCenter);
    case Qt::ForegroundRole:
      if (index.column() == kSizeColumn) return toQColor(palette::kSecondaryText);
      return {};
    default:
      return {};
  }
}

CollectorTableView::CollectorTableView(QWidget* parent) : QTableView(parent) {
  setItemDelegate(new CollectorRowDelegate(this));
  setMouseTracking(true);
  setShowGrid(false);
  setFrameShape(QFrame::NoFrame);
  setSelectionBehavior(QAbstractItemView::SelectRows);
  setSelectionMode(QAbstractItemView::ExtendedSelection);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setTextElideMode(Qt::ElideMiddle);
  setWordWrap(false);
  horizontalHeader()->hide();
  verticalHeader()->hide();
  verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  verticalHeader()->setDefaultSectionSize(kRowHeight);
  horizontalHeader()->setMinimumSectionSize(kRemoveColumnWidth);
}

void CollectorTableView::resetHoveredRow() {
  setHoveredRow(-1);
  if (model()) {
    horizontalHeader()->setSectionResizeMode(CollectorModel::kNameColumn, QHeaderView::Stretch);
    horizontalHeader()->setSectionResizeMode(CollectorModel::kSizeColumn, QHeaderView::Fixed);
    horizontalHeader()->setSectionResizeMode(CollectorModel::kRemoveColumn, QHeaderView::Fixed);
    horizontalHeader()->resizeSection(CollectorModel::kSizeColumn, kSizeColumnWidth);
    horizontalHeader()->resizeSection(CollectorModel::kRemoveColumn, kRemoveColumnWidth);
  }
}

void CollectorTableView::setHoveredRow(int row) {
  if (row == hoveredRow_) return;
  hoveredRow_ = row;
  viewport()->update();
}

void CollectorTableView::mouseMoveEvent(QMouseEvent* event) {
  setHoveredRow(rowAt(event->position().toPoint().y()));
  QTableView::mouseMoveEvent(event);
}

void CollectorTableView::mousePressEvent(QMouseEvent* event) {
  const QModelIndex index = indexAt(event->position().toPoint());
  if (event->button() == Qt::LeftButton && index.isValid() &&
      index.column() == CollectorModel::kRemoveColumn) {
    emit removeRequested(index.row());
    return;
  }
  QTableView::mousePressEvent(event);
}

void CollectorTableView::leaveEvent(QEvent* event) {
  setHoveredRow(-1);
  QTableView::leaveEvent(event);
}

void CollectorTableView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) {
    std::vector<int> rows;
    for (const QModelIndex& index : selectionModel()->selectedRows()) rows.push_back(index.row());
    if (!rows.empty()) emit removeSelectedRequested(std::move(rows));
    return;
  }
  QTableView::keyPressEvent(event);
}

}  // namespace tw
