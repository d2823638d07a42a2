// Scan progress on the desktop's launcher: the com.canonical.Unity.LauncherEntry "Update" signal
// on the session bus, which docks and task managers that support it draw as a bar over
// Tarnwell's icon. Without a session bus nothing is sent and nothing fails.
#pragma once

#include <QString>
#include <QVariantMap>
#include <functional>

namespace tw {

// The desktop entry the launcher matches the signal with.
inline constexpr const char* kLauncherApplicationUri =
    "application://org.tarnwell.Tarnwell.desktop";

class LauncherProgress {
 public:
  // Where the signal's properties go; the default emits them on the session bus.
  using Sender = std::function<void(const QVariantMap& properties)>;

  LauncherProgress();
  explicit LauncherProgress(Sender sender);

  // Shows `fraction` (clamped to 0..1) as a visible bar; repeats of the shown value send nothing.
  void showProgress(double fraction);
  // Hides the bar; does nothing when none is shown.
  void clear();

  bool isVisible() const { return visible_; }
  double progress() const { return progress_; }

 private:
  Sender sender_;
  bool visible_ = false;
  double progress_ = 0;
};

}  // namespace tw
