// Colours of the sunburst chart: the palette entries it uses, the hue wheel of folders, and the
// choice of a segment's base colour. Plain sRGB values, so the layout needs no GUI library.
#pragma once

namespace tw {

class ScanNode;

// An sRGB colour with components in 0…1.
struct SunburstColor {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;
  bool operator==(const SunburstColor&) const = default;
};

namespace sunburst {

// Palette entries used by the chart.
inline constexpr SunburstColor kBackground{0.105, 0.114, 0.137};  // view and centre disc
inline constexpr SunburstColor kAccentTeal{0.3, 0.88, 0.84};      // centre label, plain root
inline constexpr SunburstColor kCloneBlue{0.43, 0.68, 0.86};
inline constexpr SunburstColor kVirtualPurple{0.72, 0.2, 0.73};
inline constexpr SunburstColor kFileGrey{0.48, 0.48, 0.48};       // files, "smaller objects…"
inline constexpr SunburstColor kOutline{0.08, 0.08, 0.08, 0.55};  // × the segment's alpha
inline constexpr SunburstColor kEmptyRootRing{1.0, 1.0, 1.0, 0.075};
inline constexpr SunburstColor kEmptyRootText{0.62, 0.62, 0.62};

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
