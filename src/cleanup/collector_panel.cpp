#include "cleanup/collector_panel.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileIconProvider>
#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>
#include <QVariantAnimation>
#include <algorithm>

#include "cleanup/collector_icon_view.h"
#include "cleanup/collector_table_view.h"
#include "cleanup/delete_queue.h"
#include "platform/file_url.h"
#include "platform/reduce_motion.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

constexpr int kAnimationMs = 220;

std::vector<std::string> droppedPaths(const QMimeData* data) {
  std::vector<std::string> paths;
  if (!data->hasUrls()) return paths;
  for (const QUrl& url : data->urls()) {
    const QByteArray encoded = url.toEncoded();
    if (auto path = pathForFileURL(
            std::string_view(encoded.constData(), static_cast<size_t>(encoded.size()))))
      paths.push_back(std::move(*path));
  }
  return paths;
}

}  // namespace

CollectorPanel::CollectorPanel(DeleteQueue* queue, QWidget* parent)
    : QWidget(parent), queue_(queue) {
  setObjectName(QStringLiteral("collectorPanel"));
  setAcceptDrops(true);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(6);

  tablePanel_ = new QWidget(this);
  tablePanel_->setObjectName(QStringLiteral("collectorTablePanel"));
  tablePanel_->setAutoFillBackground(true);
  QPalette panelColours = tablePanel_->palette();
  panelColours.setColor(QPalette::Window, toQColor(palette::kPanel));
  panelColours.setColor(QPalette::Base, toQColor(palette::kPanel));
  tablePanel_->setPalette(panelColours);
  auto* panelColumn = new QVBoxLayout(tablePanel_);
  panelColumn->setContentsMargins(6, 15, 6, 15);
  table_ = new CollectorTableView(tablePanel_);
  model_ = new CollectorModel(queue_, this);
  QFileIconProvider icons;
  model_->setIcons(icons.icon(QFileIconProvider::Folder), icons.icon(QFileIconProvider::File));
  table_->setModel(model_);
  table_->setPalette(panelColours);
  panelColumn->addWidget(table_);
  fade_ = new QGraphicsOpacityEffect(tablePanel_);
  tablePanel_->setGraphicsEffect(fade_);
  tablePanel_->setFixedHeight(0);
  tablePanel_->hide();
  column->addWidget(tablePanel_);

  auto* bar = new QHBoxLayout;
  bar->setContentsMargins(0, 0, 0, 0);
  bar->setSpacing(10);
  icon_ = new CollectorIconView(this);
  icon_->setObjectName(QStringLiteral("collectorIcon"));
  bar->addWidget(icon_);
  label_ = new QLabel(this);
  label_->setObjectName(QStringLiteral("collectorLabel"));
  label_->setTextFormat(Qt::RichText);
  label_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  QFont labelFont = label_->font();
  labelFont.setPixelSize(13);
  label_->setFont(labelFont);
  label_->setStyleSheet(QStringLiteral("color: %1;").arg(toQColor(palette::kSecondaryText).name()));
  bar->addWidget(label_, 1);
  deleteButton_ = new QPushButton(QStringLiteral("Delete"), this);
  deleteButton_->setObjectName(QStringLiteral("deleteButton"));
  deleteButton_->setFixedHeight(28);
  deleteButton_->setMinimumWidth(78);
  deleteButton_->setCursor(Qt::PointingHandCursor);
  deleteButton_->setStyleSheet(
      QStringLiteral("QPushButton { background: %1; color: white; border: none; border-radius: 7px;"
                     " font-size: 13px; font-weight: 500; padding: 0 14px; }"
                     "QPushButton:disabled { background: %2; color: rgba(255,255,255,0.45); }")
          .arg(toQColor(palette::kSystemRed).name(),
               toQColor(palette::kPanel).lighter(150).name()));
  bar->addWidget(deleteButton_);
  column->addLayout(bar);

  animation_ = new QVariantAnimation(this);
  animation_->setDuration(kAnimationMs);
  QEasingCurve easeInOut(QEasingCurve::BezierSpline);
  easeInOut.addCubicBezierSegment(QPointF(0.42, 0), QPointF(0.58, 1), QPointF(1, 1));
  animation_->setEasingCurve(easeInOut);
  connect(animation_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
    const double t = value.toDouble();
    const double from = animation_->property("fromHeight").toDouble();
    const double to = animation_->property("toHeight").toDouble();
    tablePanel_->setFixedHeight(static_cast<int>(from + (to - from) * t + 0.5));
    fade_->setOpacity(expanded_ ? t : 1.0 - t);
  });
  connect(animation_, &QVariantAnimation::finished, this, [this] {
    // At rest the table paints directly, not through the fade's off-screen picture.
    fade_->setEnabled(false);
    if (!expanded_) tablePanel_->hide();
  });

  connect(icon_, &CollectorIconView::clicked, this, &CollectorPanel::toggleCollector);
  connect(deleteButton_, &QPushButton::clicked, this, &CollectorPanel::deleteRequested);
  connect(queue_, &DeleteQueue::changed, this, &CollectorPanel::refreshCollector);
  connect(table_, &CollectorTableView::removeRequested, this,
          [this](int row) { returnRows({row}); });
  connect(table_, &CollectorTableView::removeSelectedRequested, this, &CollectorPanel::returnRows);
  refreshCollector();
}

void CollectorPanel::returnRows(std::vector<int> rows) {
  if (rows.empty()) return;
  const int first = *std::min_element(rows.begin(), rows.end());
  if (first < 0 || first >= queue_->count()) return;
  // A picture of the first row, to fly back to the list once the item is there again.
  const QueuedItem item = queue_->collectedNodes()[static_cast<size_t>(first)];
  QRect rowRect =
      table_->visualRect(model_->index(first, CollectorModel::kNameColumn))
          .united(table_->visualRect(model_->index(first, CollectorModel::kSizeColumn)));
  const QPixmap picture = table_->viewport()->grab(rowRect);
  rowRect.moveTopLeft(table_->viewport()->mapTo(this, rowRect.topLeft()));
  queue_->returnItems(std::move(rows));
  emit itemReturned(item.path, picture, rowRect);
}

QString CollectorPanel::statusText() const {
  return plainStatus_;
}

void CollectorPanel::refreshCollector() {
  const bool empty = queue_->isEmpty();
  const uint64_t total = queue_->totalSize();
  model_->reload();
  table_->resetHoveredRow();
  plainStatus_ = collector::statusLine(empty, total);
  if (empty) {
    icon_->setAmountText(QString());
    icon_->setHasCollectedItems(false);
    label_->setText(plainStatus_.toHtmlEscaped());
    setCollectorExpanded(false, true);
    icon_->setAccessibleName(collector::iconAccessibleText(true, 0, false));
  } else {
    const collector::AmountText parts = collector::amountText(total);
    icon_->setAmountText(parts.amount);
    icon_->setHasCollectedItems(true);
    label_->setText(parts.unit.isEmpty()
                        ? plainStatus_
                        : QStringLiteral("<span style=\"font-weight:500\">%1</span> collected")
                              .arg(parts.unit.toHtmlEscaped()));
    if (expanded_) applyPanelHeight(false);
    icon_->setAccessibleName(collector::iconAccessibleText(false, total, expanded_));
  }
  deleteButton_->setVisible(!empty);
  label_->setToolTip(QString());
}

void CollectorPanel::toggleCollector() {
  setCollectorExpanded(!expanded_, true);
}

void CollectorPanel::setCollectorExpanded(bool expanded, bool animated) {
  if (expanded && queue_->isEmpty()) expanded = false;
  if (expanded == expanded_ && panelHeight_ > 0) return;
  const bool changed = expanded != expanded_;
  expanded_ = expanded;
  icon_->setExpanded(expanded);
  icon_->setAccessibleName(collector::toggleAccessibleText(expanded));
  if (expanded && changed) {
    fade_->setEnabled(true);
    fade_->setOpacity(0);
    tablePanel_->show();
  }
  applyPanelHeight(animated && changed);
}

void CollectorPanel::applyPanelHeight(bool animated) {
  panelHeight_ = collector::panelHeight(queue_->count(), CollectorTableView::kRowHeight);
  const int target = expanded_ ? panelHeight_ : 0;
  animation_->stop();
  if (!animated || prefersReducedMotion()) {
    tablePanel_->setFixedHeight(target);
    fade_->setOpacity(1);
    fade_->setEnabled(false);
    tablePanel_->setVisible(expanded_);
    return;
  }
  fade_->setEnabled(true);
  animation_->setProperty("fromHeight", tablePanel_->height());
  animation_->setProperty("toHeight", target);
  animation_->setStartValue(0.0);
  animation_->setEndValue(1.0);
  animation_->start();
}

void CollectorPanel::showStatusMessage(const QString& text) {
  plainStatus_ = text;
  label_->setText(text.toHtmlEscaped());
  label_->setToolTip(text);
}

void CollectorPanel::setCleanupRunning(bool running) {
  deleteButton_->setEnabled(!running);
  deleteButton_->setText(QStringLiteral("Delete"));
}

void CollectorPanel::dragEnterEvent(QDragEnterEvent* event) {
  if (droppedPaths(event->mimeData()).empty()) return;
  icon_->setDropTarget(true);
  event->acceptProposedAction();
}

void CollectorPanel::dragLeaveEvent(QDragLeaveEvent* event) {
  icon_->setDropTarget(false);
  QWidget::dragLeaveEvent(event);
}

void CollectorPanel::dropEvent(QDropEvent* event) {
  icon_->setDropTarget(false);
  bool accepted = false;
  for (const std::string& path : droppedPaths(event->mimeData()))
    accepted = queue_->collectPath(path) || accepted;
  if (accepted) {
    event->acceptProposedAction();
  } else {
    event->ignore();
  }
}

}  // namespace tw
