// Fusion with the few changes Tarnwell's dark palette needs: push buttons with room around their
// text and without icons, and check boxes drawn as rounded boxes that stay visible on dark panels
// (a checked box is filled with the system blue).
#pragma once

#include <QProxyStyle>

namespace tw {

class TarnwellStyle : public QProxyStyle {
  Q_OBJECT
 public:
  TarnwellStyle();

  QSize sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& size,
                         const QWidget* widget) const override;
  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
  // Dialog buttons carry text only.
  int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                QStyleHintReturn* returnData) const override;
};

// Room a push button gets beyond Fusion's own, in device-independent pixels.
inline constexpr int kButtonExtraWidth = 16;
inline constexpr int kButtonMinimumHeight = 28;

}  // namespace tw
