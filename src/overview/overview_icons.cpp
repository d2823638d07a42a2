#include "overview/overview_icons.h"

#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

namespace tw {

QIcon overviewSymbol(const QString& name, const QColor& colour, int size) {
  // Rows ask for the same few symbols over and over: render each once per colour and size.
  static QHash<QString, QIcon> cache;
  const QString key = QStringLiteral("%1|%2|%3").arg(name, colour.name(QColor::HexArgb)).arg(size);
  if (auto it = cache.constFind(key); it != cache.constEnd()) return *it;
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
  return *cache.insert(key, QIcon(pixmap));
}

}  // namespace tw
