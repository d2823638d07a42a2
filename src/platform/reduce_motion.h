// Whether the user has asked the desktop to reduce motion, so the interface skips its animations.
#pragma once

#include <optional>
#include <string_view>

namespace tw {

// True when animations should be skipped: TARNWELL_REDUCE_MOTION=1 (any other value forces
// motion on), else the desktop portal's "enable-animations" setting, else KDE's
// AnimationDurationFactor=0 in kdeglobals. The desktop's answer is read once, with a short D-Bus
// timeout, and cached for the life of the process.
bool prefersReducedMotion();

// The [KDE] AnimationDurationFactor of a kdeglobals file's text being 0; none when absent.
std::optional<bool> kdeGlobalsDisableAnimations(std::string_view text);

}  // namespace tw
