#include "overview/usage_bar.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

#include "platform/reduce_motion.h"
#include "ui/qt_color.h"

namespace tw {

UsageBar::UsageBar(QWidget* parent) : QWidget(parent), fill_(toQColor(palette::kSystemBlue)) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setFixedHeight(8);
  timer_.setInterval(40);
  connect(&timer_, &QTimer::timeout, this, [this] {
    phase_ = (phase_ + 2) % 1000;
    update();
  });
}

void UsageBar::setValue(double value) {
  value = std::clamp(value, 0.0, 1.0);
  if (value == value_) return;
  value_ = value;
  update();
}

void UsageBar::setFillColour(const QColor& colour) {
  fill_ = colour;
  update();
}

void UsageBar::setStriped(bool on) {
  // The travelling band is motion for its own sake: left out when the desktop asks for less.
  if (on && prefersReducedMotion()) on = false;
  if (on == timer_.isActive()) return;
  if (on) {
    timer_.start();
  } else {
    timer_.stop();
  }
  update();
}

void UsageBar::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF track = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
  const qreal radius = track.height() / 2;
  QPainterPath trackPath;
  trackPath.addRoundedRect(track, radius, radius);
  painter.fillPath(trackPath, QColor(255, 255, 255, 28));
  if (value_ <= 0) return;
  QRectF filled = track;
  filled.setWidth(std::max(track.height(), track.width() * value_));
  QPainterPath fillPath;
  fillPath.addRoundedRect(filled, radius, radius);
  painter.fillPath(fillPath, fill_);
  if (!timer_.isActive()) return;
  // A soft light band travelling along the filled part.
  const qreal bandWidth = 60;
  const qreal travel = filled.width() + bandWidth;
  const qreal x = filled.left() - bandWidth + std::fmod(phase_ * 2.0, travel);
  QLinearGradient band(x, 0, x + bandWidth, 0);
  band.setColorAt(0, QColor(255, 255, 255, 0));
  band.setColorAt(0.5, QColor(255, 255, 255, 90));
  band.setColorAt(1, QColor(255, 255, 255, 0));
  painter.setClipPath(fillPath);
  painter.fillRect(QRectF(x, filled.top(), bandWidth, filled.height()), band);
}

Spinner::Spinner(QWidget* parent) : QWidget(parent) {
  setFixedSize(16, 16);
  timer_.setInterval(50);
  connect(&timer_, &QTimer::timeout, this, [this] {
    angle_ = (angle_ + 30) % 360;
    update();
  });
  hide();
}

void Spinner::setRunning(bool on) {
  setVisible(on);
  // Under reduced motion the indicator stays, still.
  if (on && prefersReducedMotion()) on = false;
  if (on == timer_.isActive()) return;
  if (on) {
    timer_.start();
  } else {
    timer_.stop();
  }
}

void Spinner::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(width() / 2.0, height() / 2.0);
  painter.rotate(angle_);
  for (int i = 0; i < 12; ++i) {
    QColor tick = toQColor(palette::kSecondaryText, 0.2 + 0.8 * i / 11.0);
    painter.setPen(QPen(tick, 1.6, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(0, -3.5), QPointF(0, -6.5));
    painter.rotate(30);
  }
}

}  // namespace tw
