#include "platform/launcher_progress.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <algorithm>
#include <cmath>

namespace tw {

namespace {

void sendOnSessionBus(const QVariantMap& properties) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return;
  QDBusMessage signal = QDBusMessage::createSignal(
      QStringLiteral("/org/tarnwell/Tarnwell"), QStringLiteral("com.canonical.Unity.LauncherEntry"),
      QStringLiteral("Update"));
  signal << QString::fromLatin1(kLauncherApplicationUri) << properties;
  bus.send(signal);
}

// Launchers draw a bar a few hundred pixels wide at most: a thousandth is finer than any of them.
constexpr double kResolution = 1000.0;

}  // namespace

LauncherProgress::LauncherProgress() : LauncherProgress(sendOnSessionBus) {}

LauncherProgress::LauncherProgress(Sender sender) : sender_(std::move(sender)) {}

void LauncherProgress::showProgress(double fraction) {
  if (!std::isfinite(fraction)) fraction = 0;
  const double value = std::round(std::clamp(fraction, 0.0, 1.0) * kResolution) / kResolution;
  if (visible_ && value == progress_) return;
  visible_ = true;
  progress_ = value;
  if (sender_) {
    sender_({{QStringLiteral("progress"), value}, {QStringLiteral("progress-visible"), true}});
  }
}

void LauncherProgress::clear() {
  if (!visible_) return;
  visible_ = false;
  progress_ = 0;
  if (sender_) {
    sender_({{QStringLiteral("progress"), 0.0}, {QStringLiteral("progress-visible"), false}});
  }
}

}  // namespace tw
