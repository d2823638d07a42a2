// Painting of the sunburst chart with QPainter: annular sectors, their fills and highlights, the
// centre disc with its label, and the empty-root picture. Works on any paint device, so the view,
// its cached picture, tests and screenshots all draw the same way.
//
// Painting takes a list of drawn segments: a segment of the layout with the geometry it has in the
// frame being drawn. The resting chart draws every segment at its own place; a transition builds
// its own list per frame and paints it the same way.
#pragma once

#include <QColor>
#include <QPainterPath>
#include <QPointF>
#include <QPolygonF>
#include <QRectF>
#include <cstdint>
#include <span>
#include <vector>

#include "browser/sunburst_layout.h"
#include "ui/qt_color.h"

class QPainter;

namespace tw {

// A segment as drawn in one frame: angles in radians, radii unscaled, alpha 0…1. An arc with only
// the background beneath it is painted in its opaque mix with the background, which looks the
// same and blends far faster than a translucent fill; one that may lie over other arcs is not.
struct SunburstDrawnSegment {
  const SunburstSegment* segment = nullptr;
  double start = 0;
  double end = 0;
  double inner = 0;
  double outer = 0;
  double alpha = 1;
  bool overBackground = true;
};

// What is emphasised: the selected node (all others dimmed), the segment under the pointer with
// its flicker phase, and the node of the list row under the pointer.
struct SunburstHighlight {
  const ScanNode* selectedNode = nullptr;
  const SunburstSegment* hoveredSegment = nullptr;
  bool hoverFlickerBright = false;
  const ScanNode* listHoveredNode = nullptr;

  bool highlights(const SunburstSegment& segment) const {
    return &segment == hoveredSegment ||
           (listHoveredNode != nullptr && segment.node == listHoveredNode);
  }
};

namespace sunburst {

// Outline of an annular sector: the outer arc from start to end, the inner arc back, closed.
QPainterPath pathFromStart(double start, double end, double inner, double outer, QPointF center,
                           double scale);

// The same outline as a polygon of chords, into `polygon` (cleared first): no chord strays more
// than `tolerance` pixels from the true arc, and every edge is inset by `seam` ÷ 2 pixels (at most
// a quarter of the segment's width) so neighbours keep a hairline between them.
void sectorPolygon(QPolygonF& polygon, double start, double end, double inner, double outer,
                   QPointF center, double scale, double tolerance, double seam = 0);

// The segments of the resting chart: full sweep `revealProgress` of each arc, rings grown out of
// the centre disc by `radialRevealProgress` (clamped to 0…1) and faded in with it.
std::vector<SunburstDrawnSegment> restingSegments(std::span<const SunburstSegment> segments,
                                                  double revealProgress = 1,
                                                  double radialRevealProgress = 1);

// The fill colour of a segment at `alpha` with dimming and highlight applied.
QColor fillColor(const SunburstSegment& segment, double alpha, const SunburstHighlight& highlight);

// One segment with explicit geometry; nothing when end ≤ start or alpha ≤ 0.
void drawSegment(QPainter& painter, const SunburstSegment& segment, double start, double end,
                 double inner, double outer, QPointF center, double scale, double alpha,
                 const SunburstHighlight& highlight);
void drawSegments(QPainter& painter, std::span<const SunburstDrawnSegment> segments, QPointF center,
                  double scale, const SunburstHighlight& highlight);

// Parts of the picture.
void drawBackground(QPainter& painter, const QRectF& bounds);
// The faint ring and "This folder is empty".
void drawEmptyRoot(QPainter& painter, const QRectF& bounds, QPointF center);
// The centre disc and the size label on it, in the 17-pixel medium system font, smaller on a
// small disc and elided when even 10 pixels are too wide: the label never leaves the disc.
void drawCentre(QPainter& painter, QPointF center, double scale, uint64_t size);

// The whole resting chart of `layout` in `bounds`, as the view shows it.
void drawRestingChart(QPainter& painter, const QRectF& bounds, const SunburstLayout& layout,
                      const SunburstHighlight& highlight);

}  // namespace sunburst
}  // namespace tw
