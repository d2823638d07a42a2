#include "platform/reduce_motion.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QVariant>
#include <string>

namespace tw {

namespace {

constexpr int kPortalTimeoutMs = 300;

// The portal's answer to enable-animations, when a session bus and the portal answer in time.
std::optional<bool> portalEnablesAnimations() {
  // Never let Qt autolaunch a bus: only talk to one that is already there.
  const QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS");
  const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
  if (address.isEmpty() && (runtime.isEmpty() || !QFileInfo::exists(runtime + "/bus")))
    return std::nullopt;
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return std::nullopt;
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.portal.Desktop"),
      QStringLiteral("/org/freedesktop/portal/desktop"),
      QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("Read"));
  call << QStringLiteral("org.gnome.desktop.interface") << QStringLiteral("enable-animations");
  const QDBusMessage reply = bus.call(call, QDBus::Block, kPortalTimeoutMs);
  if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
    return std::nullopt;
  // Read answers a variant holding a variant holding the value.
  QVariant value = reply.arguments().first();
  while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
    value = value.value<QDBusVariant>().variant();
  if (value.typeId() != QMetaType::Bool) return std::nullopt;
  return value.toBool();
}

std::optional<bool> kdeDisablesAnimations() {
  QStringList dirs;
  const QByteArray home = qgetenv("XDG_CONFIG_HOME");
  dirs << (home.isEmpty() ? QDir::homePath() + QStringLiteral("/.config")
                          : QString::fromLocal8Bit(home));
  const QByteArray configDirs = qgetenv("XDG_CONFIG_DIRS");
  dirs << (configDirs.isEmpty()
               ? QStringList{QStringLiteral("/etc/xdg")}
               : QString::fromLocal8Bit(configDirs).split(u':', Qt::SkipEmptyParts));
  // The user's file overrides the system's: the first file that sets the key decides.
  for (const QString& dir : dirs) {
    QFile file(dir + QStringLiteral("/kdeglobals"));
    if (!file.open(QIODevice::ReadOnly)) continue;
    const QByteArray text = file.read(1 << 20);
    if (auto answer = kdeGlobalsDisableAnimations(std::string_view(text.data(), text.size())))
      return answer;
  }
  return std::nullopt;
}

bool desktopPrefersReducedMotion() {
  if (auto enabled = portalEnablesAnimations()) return !*enabled;
  return kdeDisablesAnimations().value_or(false);
}

}  // namespace

std::optional<bool> kdeGlobalsDisableAnimations(std::string_view text) {
  bool inKdeGroup = false;
  std::optional<bool> answer;
  while (!text.empty()) {
    const std::size_t newline = text.find('\n');
    std::string_view line = text.substr(0, newline);
    text = newline == std::string_view::npos ? std::string_view() : text.substr(newline + 1);
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r')) line.remove_suffix(1);
    if (line.starts_with('[')) {
      inKdeGroup = line == "[KDE]";
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!inKdeGroup || equals == std::string_view::npos) continue;
    std::string_view key = line.substr(0, equals);
    while (!key.empty() && (key.back() == ' ' || key.back() == '\t')) key.remove_suffix(1);
    if (key != "AnimationDurationFactor") continue;
    std::string value(line.substr(equals + 1));
    while (!value.empty() && value.front() == ' ') value.erase(0, 1);
    bool ok = false;
    const double factor = QByteArray::fromStdString(value).toDouble(&ok);
    if (ok) answer = factor == 0;
  }
  return answer;
}

bool prefersReducedMotion() {
  const QByteArray forced = qgetenv("TARNWELL_REDUCE_MOTION");
  if (!forced.isEmpty()) return forced == "1";
  static const bool desktop = desktopPrefersReducedMotion();
  return desktop;
}

}  // namespace tw
