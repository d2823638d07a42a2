#include "browser/sunburst_colors.h"

#include <algorithm>
#include <cmath>

#include "scan/scan_node.h"

namespace tw::sunburst {

SunburstColor colorFromHSB(double hue, double saturation, double brightness) {
  const double h = (hue - std::floor(hue)) * 6.0;
  const int sector = std::min(5, static_cast<int>(h));
  const double f = h - sector;
  const double v = brightness;
  const double p = v * (1 - saturation);
  const double q = v * (1 - saturation * f);
  const double t = v * (1 - saturation * (1 - f));
  switch (sector) {
    case 0:
      return {v, t, p};
    case 1:
      return {q, v, p};
    case 2:
      return {p, v, t};
    case 3:
      return {p, q, v};
    case 4:
      return {t, p, v};
    default:
      return {v, p, q};
  }
}

SunburstColor hueColor(double position, unsigned depth) {
  const double wheel = (position - std::floor(position)) * 0.9 + 0.98;
  const double hue = wheel - std::floor(wheel);
  const double saturation = std::min(0.82, 0.64 + 0.025 * depth);
  const double brightness = std::max(0.89, 0.97 - 0.012 * depth);
  return colorFromHSB(hue, saturation, brightness);
}

SunburstColor blendTowardWhite(const SunburstColor& color, double fraction) {
  const double keep = 1 - fraction;
  return {color.red * keep + fraction, color.green * keep + fraction, color.blue * keep + fraction,
          color.alpha * keep + fraction};
}

SunburstColor baseColorForNode(const ScanNode& node, double colorPosition, unsigned depth) {
  if (node.isVirtualNode()) return kVirtualPurple;
  if (node.isAPFSClone()) return kCloneBlue;
  if (node.isDirectory() && !node.isAggregate()) return hueColor(colorPosition, depth);
  return kFileGrey;
}

}  // namespace tw::sunburst
