#include "overview/disk_sheets.h"

#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QListView>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QVBoxLayout>

#include "overview/overview_icons.h"
#include "platform/file_url.h"
#include "ui/byte_count.h"
#include "ui/qt_color.h"

namespace tw {

namespace {
QString qs(const std::string& text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}
}  // namespace

std::vector<std::string> pathsFromUriList(const QByteArray& uriList) {
  std::vector<std::string> paths;
  for (const QByteArray& line : uriList.split('\n')) {
    const QByteArray uri = line.trimmed();
    if (uri.isEmpty() || uri.startsWith('#')) continue;
    if (std::optional<std::string> path = pathForFileURL(uri.toStdString())) paths.push_back(*path);
  }
  return paths;
}

// --- Add Hard Disk ----------------------------------------------------------------------------

AddDiskModel::AddDiskModel(QObject* parent) : QAbstractListModel(parent) {}

void AddDiskModel::setDisks(std::vector<OverviewDisk> disks) {
  beginResetModel();
  disks_ = std::move(disks);
  endResetModel();
}

int AddDiskModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(disks_.size());
}

QString AddDiskModel::detailText(const OverviewDisk& disk) {
  const QString capacity = disk.totalCapacity == 0 ? QStringLiteral("Unknown capacity")
                                                   : qs(formatByteCount(disk.totalCapacity));
  const QString kind = disk.path == "/" ? QStringLiteral("startup disk")
                       : disk.internal  ? QStringLiteral("internal volume")
                                        : QStringLiteral("external volume");
  return capacity + QStringLiteral(" \u2022 ") + kind;
}

QVariant AddDiskModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const OverviewDisk& disk = disks_[static_cast<std::size_t>(index.row())];
  const QString name =
      qs(disk.name.empty() && disk.path == "/" ? std::string(kStartupDiskName) : disk.name);
  switch (role) {
    case Qt::DisplayRole:
      return name + QLatin1Char('\n') + detailText(disk);
    case Qt::DecorationRole:
      return overviewSymbol(QStringLiteral("disk"), toQColor(palette::kSecondaryText), 24);
    case Qt::AccessibleTextRole:
      return QStringLiteral("%1, %2").arg(
          name, detailText(disk).replace(QStringLiteral(" \u2022 "), QStringLiteral(", ")));
    case Qt::ToolTipRole:
      return qs(disk.path);
    case kPathRole:
      return QByteArray(disk.path.data(), static_cast<qsizetype>(disk.path.size()));
    case kDetailRole:
      return detailText(disk);
    default:
      return {};
  }
}

QVariant AddDiskModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (section == 0 && orientation == Qt::Horizontal && role == Qt::DisplayRole)
    return QStringLiteral("Disk");
  return {};
}

AddDiskSheet::AddDiskSheet(QWidget* parent) : QDialog(parent) {
  setWindowTitle(QStringLiteral("Add Hard Disk"));
  setWindowModality(Qt::WindowModal);
  auto* title = new QLabel(QStringLiteral("Add Hard Disk"), this);
  QFont font = title->font();
  font.setPixelSize(15);
  font.setBold(true);
  title->setFont(font);
  auto* text =
      new QLabel(QStringLiteral("Choose an available hard disk or mounted volume to add."), this);
  auto* header = new QLabel(QStringLiteral("Disk"), this);
  header->setStyleSheet(QStringLiteral("color: %1;").arg(toQColor(palette::kSecondaryText).name()));
  model_ = new AddDiskModel(this);
  list_ = new QListView(this);
  list_->setModel(model_);
  list_->setIconSize(QSize(24, 24));
  list_->setSpacing(3);
  list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  list_->setMinimumSize(380, 180);
  auto* empty = new QLabel(QString::fromUtf8(kAllDisksAddedText), this);
  auto* buttons = new QDialogButtonBox(this);
  buttons->addButton(QDialogButtonBox::Cancel);
  open_ = buttons->addButton(QStringLiteral("Open"), QDialogButtonBox::AcceptRole);
  open_->setDefault(true);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(title);
  layout->addWidget(text);
  layout->addWidget(header);
  layout->addWidget(list_, 1);
  layout->addWidget(empty);
  layout->addWidget(buttons);
  auto refresh = [this, empty] {
    empty->setVisible(model_->rowCount() == 0);
    if (model_->rowCount() > 0 && !list_->currentIndex().isValid())
      list_->setCurrentIndex(model_->index(0));
    open_->setEnabled(model_->rowCount() > 0);
  };
  connect(model_, &QAbstractItemModel::modelReset, this, refresh);
  refresh();
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(open_, &QPushButton::clicked, this, &AddDiskSheet::openSelected);
  connect(list_, &QListView::doubleClicked, this, &AddDiskSheet::openSelected);
}

void AddDiskSheet::openSelected() {
  const QModelIndex index = list_->currentIndex();
  if (!index.isValid()) return;
  const QByteArray path = index.data(AddDiskModel::kPathRole).toByteArray();
  accept();
  emit diskChosen(path.toStdString());
}

// --- Unlock Disk ------------------------------------------------------------------------------

DiskDropTarget::DiskDropTarget(QWidget* parent) : QFrame(parent) {
  setAcceptDrops(true);
  setMinimumSize(320, 120);
  setAccessibleName(QStringLiteral("Disk drop target"));
}

void DiskDropTarget::dragEnterEvent(QDragEnterEvent* event) {
  if (!event->mimeData()->hasFormat(QStringLiteral("text/uri-list"))) return;
  hovering_ = true;
  update();
  event->acceptProposedAction();
}

void DiskDropTarget::dragLeaveEvent(QDragLeaveEvent*) {
  hovering_ = false;
  update();
}

void DiskDropTarget::dropEvent(QDropEvent* event) {
  hovering_ = false;
  update();
  const std::vector<std::string> paths =
      pathsFromUriList(event->mimeData()->data(QStringLiteral("text/uri-list")));
  if (paths.empty()) return;
  event->acceptProposedAction();
  emit pathDropped(paths.front());
}

void DiskDropTarget::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF box = QRectF(rect()).adjusted(4, 4, -4, -4);
  QPen pen(toQColor(hovering_ ? palette::kSystemBlue : palette::kSecondaryText), 2, Qt::DashLine);
  painter.setPen(pen);
  painter.setBrush(toQColor(palette::kPanel));
  painter.drawRoundedRect(box, 10, 10);
  const QIcon icon = overviewSymbol(QStringLiteral("disk"), pen.color(), 40);
  icon.paint(&painter,
             QRect(QPoint(int(box.center().x()) - 20, int(box.top()) + 20), QSize(40, 40)));
  painter.setPen(toQColor(palette::kSecondaryText));
  painter.drawText(box.adjusted(0, 66, 0, 0), Qt::AlignHCenter | Qt::AlignTop,
                   QStringLiteral("Drop the disk here"));
}

UnlockDiskSheet::UnlockDiskSheet(QWidget* parent) : QDialog(parent) {
  setWindowTitle(QStringLiteral("Unlock Disk"));
  setWindowModality(Qt::WindowModal);
  auto* heading = new QLabel(QStringLiteral("Unlock this disk for a complete scan"), this);
  QFont font = heading->font();
  font.setPixelSize(15);
  font.setBold(true);
  heading->setFont(font);
  auto* text = new QLabel(QStringLiteral("Files is showing the disk for you. Drag the disk from "
                                         "Files onto the target below."),
                          this);
  text->setWordWrap(true);
  target_ = new DiskDropTarget(this);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(heading);
  layout->addWidget(text);
  layout->addWidget(target_, 1);
  layout->addWidget(buttons);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

}  // namespace tw
