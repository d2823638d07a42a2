#include "platform/file_manager.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QStringList>
#include <QUrl>

#include "platform/file_url.h"
#include "platform/paths.h"

namespace tw {

namespace {

void openFolderOf(const std::string& path) {
  QDesktopServices::openUrl(QUrl::fromEncoded(fileUrlForPath(parentPath(path))));
}

}  // namespace

QByteArray fileUrlForPath(const std::string& path) {
  const std::string url = fileURLForPath(path, false);  // the one encoding of file URLs
  return QByteArray(url.data(), static_cast<qsizetype>(url.size()));
}

void revealInFileManager(const std::vector<std::string>& paths) {
  if (paths.empty()) return;
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) {
    openFolderOf(paths.front());
    return;
  }
  QStringList uris;
  for (const std::string& path : paths) uris.append(QString::fromLatin1(fileUrlForPath(path)));
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.FileManager1"),
      QStringLiteral("/org/freedesktop/FileManager1"),
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
  call << uris << QString();
  auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
  const std::string first = paths.front();
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished,
                   [first](QDBusPendingCallWatcher* w) {
                     if (w->isError()) openFolderOf(first);
                     w->deleteLater();
                   });
}

}  // namespace tw
