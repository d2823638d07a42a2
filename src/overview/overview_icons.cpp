#include "overview/overview_icons.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

namespace tw {

QIcon overviewSymbol(const QString& name, const QColor& colour, int size) {
  QSvgRenderer renderer(QStringLiteral(":/overview/%1.svg").arg(name));
  const qreal ratio = qApp ? qApp->devicePixelRatio() : 1.0;
  QPixmap pixmap(QSize(size, size) * ratio);
  pixmap.setDevicePixelRatio(ratio);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  renderer.render(&painter, QRectF(0, 0, size, size));
  painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
  painter.fillRect(QRectF(0, 0, size, size), colour);
  painter.end();
  return QIcon(pixmap);
}

}  // namespace tw
