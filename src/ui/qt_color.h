// Palette colours as Qt colours, for the layers that draw with Qt. The palette itself stays
// Qt-free.
#pragma once

#include <QColor>
#include <algorithm>

#include "ui/palette.h"

namespace tw {

// `colour` with the opacity `alpha` (clamped to 0…1) in place of its own.
inline QColor toQColor(const Rgba& colour, double alpha) {
  return QColor::fromRgbF(static_cast<float>(colour.red), static_cast<float>(colour.green),
                          static_cast<float>(colour.blue),
                          static_cast<float>(std::clamp(alpha, 0.0, 1.0)));
}

inline QColor toQColor(const Rgba& colour) {
  return toQColor(colour, colour.alpha);
}

}  // namespace tw
