// The sunburst chart's angles, and their conversion to screen and Qt angles in one place.
//
// Chart angles are radians in [0, 2π): angle 0 points right (three o'clock) and angles grow
// clockwise on screen, with y growing downward as in every Qt widget, so a disk's free-space gap
// runs clockwise from three o'clock. Qt's QPainterPath::arcTo wants degrees measured
// counter-clockwise from three o'clock; screen offsets come from cos and sin. Every caller goes
// through these helpers, so the chart's orientation is decided here and nowhere else.
#pragma once

#include <cmath>
#include <numbers>

namespace tw::sunburst {

inline constexpr double kFullTurn = 2 * std::numbers::pi;

// The chart angle of an offset (dx, dy) from the chart's centre, in [0, 2π).
inline double angleOfOffset(double dx, double dy) {
  double angle = std::atan2(dy, dx);
  if (angle < 0) angle += kFullTurn;
  return angle;
}

// The offset from the centre of the point at `radius` in the direction of chart angle `angle`.
inline double offsetXAt(double angle, double radius) {
  return radius * std::cos(angle);
}
inline double offsetYAt(double angle, double radius) {
  return radius * std::sin(angle);
}

// Qt's angle (degrees counter-clockwise from three o'clock) for a chart angle.
inline double qtDegreesForAngle(double angle) {
  return -angle * (180.0 / std::numbers::pi);
}
// Qt's sweep (degrees, negative is clockwise) for a chart sweep from `start` to `end`.
inline double qtSweepDegrees(double start, double end) {
  return -(end - start) * (180.0 / std::numbers::pi);
}

}  // namespace tw::sunburst
