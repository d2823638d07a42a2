#include "app/tarnwell_style.h"

#include <QPainter>
#include <QPainterPath>
#include <QStyleFactory>
#include <QStyleOption>

#include "app/appearance.h"

namespace tw {

TarnwellStyle::TarnwellStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}

QSize TarnwellStyle::sizeFromContents(ContentsType type, const QStyleOption* option,
                                      const QSize& size, const QWidget* widget) const {
  QSize out = QProxyStyle::sizeFromContents(type, option, size, widget);
  if (type == CT_PushButton) {
    out.rwidth() += kButtonExtraWidth;
    out.setHeight(std::max(out.height(), kButtonMinimumHeight));
  }
  return out;
}

int TarnwellStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                             QStyleHintReturn* returnData) const {
  if (hint == SH_DialogButtonBox_ButtonsHaveIcons) return 0;
  return QProxyStyle::styleHint(hint, option, widget, returnData);
}

void TarnwellStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option,
                                  QPainter* painter, const QWidget* widget) const {
  if (element != PE_IndicatorCheckBox) {
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    return;
  }
  const bool enabled = option->state & State_Enabled;
  const bool on = option->state & (State_On | State_NoChange);
  const QRectF box = QRectF(option->rect).adjusted(1.5, 1.5, -1.5, -1.5);
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  QColor fill = on ? toQColor(palette::kSystemBlue) : QColor(255, 255, 255, 20);
  QColor edge = on ? fill.lighter(115) : QColor(255, 255, 255, 90);
  if (!enabled) {
    fill.setAlphaF(fill.alphaF() * 0.4f);
    edge.setAlphaF(edge.alphaF() * 0.4f);
  }
  painter->setPen(QPen(edge, 1.0));
  painter->setBrush(fill);
  painter->drawRoundedRect(box, 3.5, 3.5);
  if (on) {
    QPen mark(QColor(255, 255, 255, enabled ? 255 : 120), 1.8, Qt::SolidLine, Qt::RoundCap,
              Qt::RoundJoin);
    painter->setPen(mark);
    painter->setBrush(Qt::NoBrush);
    if (option->state & State_NoChange) {
      painter->drawLine(QPointF(box.left() + 3.5, box.center().y()),
                        QPointF(box.right() - 3.5, box.center().y()));
    } else {
      QPainterPath check;
      check.moveTo(box.left() + box.width() * 0.24, box.top() + box.height() * 0.52);
      check.lineTo(box.left() + box.width() * 0.43, box.top() + box.height() * 0.72);
      check.lineTo(box.left() + box.width() * 0.78, box.top() + box.height() * 0.30);
      painter->drawPath(check);
    }
  }
  painter->restore();
}

}  // namespace tw
