#include "cleanup/collector_icon_view.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

CollectorIconView::CollectorIconView(QWidget* parent) : QWidget(parent) {
  setFixedSize(sizeHint());
  setCursor(Qt::PointingHandCursor);
  setFocusPolicy(Qt::TabFocus);
}

void CollectorIconView::setAmountText(const QString& amount) {
  if (amount == amount_) return;
  amount_ = amount;
  update();
}

void CollectorIconView::setHasCollectedItems(bool on) {
  if (on == hasItems_) return;
  hasItems_ = on;
  update();
}

void CollectorIconView::setExpanded(bool on) {
  if (on == expanded_) return;
  expanded_ = on;
  update();
}

void CollectorIconView::setDropTarget(bool on) {
  if (on == dropTarget_) return;
  dropTarget_ = on;
  update();
}

void CollectorIconView::setDragAvailable(bool on) {
  if (on == dragAvailable_) return;
  dragAvailable_ = on;
  update();
}

void CollectorIconView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const QColor accent = toQColor(palette::kAccentTeal);
  const QColor secondary = toQColor(palette::kSecondaryText);
  const QRectF box = QRectF(rect()).adjusted(3, 3, -3, -3);

  // The tray: a rounded square, tinted while it holds items or a drag hovers over it, its edge
  // lit while rows are being dragged.
  const bool inviting = dropTarget_ || dragAvailable_;
  QColor fill = toQColor(palette::kPanel).lighter(dropTarget_ ? 170 : 125);
  if (hasItems_ && !dropTarget_) fill = QColor(accent.red(), accent.green(), accent.blue(), 46);
  p.setPen(QPen(inviting || hasItems_ ? accent : secondary, inviting ? 2.0 : 1.2,
                hasItems_ || dropTarget_ ? Qt::SolidLine : Qt::DashLine));
  p.setBrush(fill);
  p.drawRoundedRect(box, 9, 9);

  if (hasItems_) {
    QFont font = this->font();
    font.setPixelSize(amount_.size() > 3 ? 12 : 14);
    font.setWeight(QFont::DemiBold);
    p.setFont(font);
    p.setPen(toQColor(palette::kPrimaryText));
    p.drawText(box.adjusted(0, -4, 0, -4), Qt::AlignCenter, amount_);
    // A chevron under the amount: down while the panel is open, up while it is closed.
    const QPointF c(box.center().x(), box.bottom() - 8);
    QPainterPath chevron;
    const double d = expanded_ ? 2.5 : -2.5;
    chevron.moveTo(c.x() - 4, c.y() - d);
    chevron.lineTo(c.x(), c.y() + d);
    chevron.lineTo(c.x() + 4, c.y() - d);
    p.setPen(QPen(accent, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawPath(chevron);
    return;
  }
  // Empty: an arrow pointing into the tray.
  const QPointF c = box.center();
  p.setPen(QPen(inviting ? accent : secondary, 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  p.drawLine(QPointF(c.x(), c.y() - 9), QPointF(c.x(), c.y() + 5));
  p.drawLine(QPointF(c.x() - 5, c.y()), QPointF(c.x(), c.y() + 5));
  p.drawLine(QPointF(c.x() + 5, c.y()), QPointF(c.x(), c.y() + 5));
  p.drawLine(QPointF(c.x() - 9, c.y() + 9), QPointF(c.x() + 9, c.y() + 9));
}

void CollectorIconView::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
    emit clicked();
}

void CollectorIconView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return) {
    emit clicked();
    return;
  }
  QWidget::keyPressEvent(event);
}

}  // namespace tw
