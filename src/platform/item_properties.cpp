#include "platform/item_properties.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QStringList>
#include <QTimer>

#include "platform/file_manager.h"

namespace tw {

void showItemProperties(const std::string& path, std::function<void(bool shown)> done) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) {
    QTimer::singleShot(0, [done] {
      if (done) done(false);
    });
    return;
  }
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.FileManager1"),
      QStringLiteral("/org/freedesktop/FileManager1"),
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItemProperties"));
  call << QStringList{QString::fromLatin1(fileUrlForPath(path))} << QString();
  auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [done](QDBusPendingCallWatcher* w) {
    if (done) done(!w->isError());
    w->deleteLater();
  });
}

}  // namespace tw
