// Colours of the sunburst chart: the palette entries it uses, the hue wheel of folders, and the
// choice of a segment's base colour. Plain sRGB values, so the layout needs no GUI library.
#pragma once

#include "ui/palette.h"

namespace tw {

class ScanNode;

// An sRGB colour with components in 0…1: the interface's own colour type.
using SunburstColor = Rgba;

namespace sunburst {

// Palette entries used by the chart.
inline constexpr SunburstColor kBackground = palette::kBackground;  // view and centre disc
inline constexpr SunburstColor kAccentTeal = palette::kAccentTeal;  // centre label, plain root
inline constexpr SunburstColor kCloneBlue = palette::kCloneBlue;
inline constexpr SunburstColor kVirtualPurple = palette::kVirtualPurple;
inline constexpr SunburstColor kFileGrey{0.48, 0.48, 0.48};  // files, "smaller objects…"
inline constexpr SunburstColor kEmptyRootRing = palette::kHairline;
inline constexpr SunburstColor kEmptyRootText = palette::kSecondaryText;

// Hue, saturation and brightness (each 0…1) to sRGB, alpha 1.
SunburstColor colorFromHSB(double hue, double saturation, double brightness);

// The folder colour of colour position `position` on ring `depth`: hue runs from 0.98 through red
// to 0.88, and deeper rings are more saturated and darker.
SunburstColor hueColor(double position, unsigned depth);

// `color` moved toward opaque white by `fraction` (0 keeps it, 1 gives white).
SunburstColor blendTowardWhite(const SunburstColor& color, double fraction);

// The fill of a segment before dimming and highlights: virtual entries purple, clones blue,
// folders (directories that are not aggregates) their hue colour, everything else file grey.
SunburstColor baseColorForNode(const ScanNode& node, double colorPosition, unsigned depth);

}  // namespace sunburst
}  // namespace tw
