#include "browser/elided_label.h"

#include <QEvent>
#include <QFontMetrics>
#include <QPainter>

namespace tw {

namespace {

const QString kDot = QStringLiteral("\u25cf ");
// What the label asks of a layout, whatever its text: room for a few characters.
constexpr int kHintCharacters = 8;

}  // namespace

ElidedLabel::ElidedLabel(Qt::TextElideMode mode, QWidget* parent) : QWidget(parent), mode_(mode) {
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

void ElidedLabel::setText(const QString& text, std::optional<QColor> dot) {
  if (text == text_ && dot == dot_) return;
  text_ = text;
  dot_ = dot;
  update();
}

int ElidedLabel::dotWidth() const {
  return dot_ ? fontMetrics().horizontalAdvance(kDot) : 0;
}

QString ElidedLabel::shownText() const {
  return fontMetrics().elidedText(text_, mode_, std::max(0, contentsRect().width() - dotWidth()));
}

QSize ElidedLabel::sizeHint() const {
  const QFontMetrics metrics = fontMetrics();
  return {metrics.averageCharWidth() * kHintCharacters, metrics.height()};
}

QSize ElidedLabel::minimumSizeHint() const {
  return {0, fontMetrics().height()};
}

void ElidedLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  QRect area = contentsRect();
  const int flags = Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine;
  if (dot_) {
    painter.setPen(*dot_);
    painter.drawText(area, flags, kDot);
    area.setLeft(area.left() + dotWidth());
  }
  painter.setPen(palette().color(foregroundRole()));
  painter.drawText(area, flags, shownText());
}

void ElidedLabel::changeEvent(QEvent* event) {
  if (event->type() == QEvent::FontChange) updateGeometry();
  QWidget::changeEvent(event);
}

}  // namespace tw
