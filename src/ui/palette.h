// The colours of Tarnwell's dark interface, shared by the windows, the chart and the reports.
// sRGB components from 0 to 1. Qt-free: the widget layer turns them into a QPalette.
#pragma once

namespace tw {

struct Rgba {
  double red = 0, green = 0, blue = 0, alpha = 1;
  bool operator==(const Rgba&) const = default;
};

namespace palette {

// Surfaces and text.
inline constexpr Rgba kBackground{0.105, 0.114, 0.137};
inline constexpr Rgba kPanel{0.135, 0.145, 0.172};
inline constexpr Rgba kPrimaryText{0.92, 0.92, 0.92};
inline constexpr Rgba kSecondaryText{0.62, 0.62, 0.62};
inline constexpr Rgba kHairline{1.0, 1.0, 1.0, 0.075};

// Accents.
inline constexpr Rgba kAccentTeal{0.3, 0.88, 0.84};
inline constexpr Rgba kCloneBlue{0.43, 0.68, 0.86};
inline constexpr Rgba kVirtualPurple{0.72, 0.2, 0.73};

// System colours, as the dark appearance shows them (#0A84FF, #30D158, #FF9F0A, #FF453A).
inline constexpr Rgba kSystemBlue{10 / 255.0, 132 / 255.0, 255 / 255.0};
inline constexpr Rgba kSystemGreen{48 / 255.0, 209 / 255.0, 88 / 255.0};
inline constexpr Rgba kSystemOrange{255 / 255.0, 159 / 255.0, 10 / 255.0};
inline constexpr Rgba kSystemRed{255 / 255.0, 69 / 255.0, 58 / 255.0};

}  // namespace palette
}  // namespace tw
