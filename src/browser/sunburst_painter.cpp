#include "browser/sunburst_painter.h"

#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QImage>
#include <QPaintDevice>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "browser/sunburst_angles.h"
#include "ui/byte_count.h"

namespace tw::sunburst {

namespace {

constexpr double kDimmedAlpha = 0.32;
constexpr double kListHoverBlend = 0.34;
constexpr double kHoverBrightBlend = 0.3;
constexpr double kHoverDimBlend = 0.08;
constexpr double kGlowBlend = 0.65;
constexpr double kGlowAlpha = 0.82;
constexpr double kGlowBlurRadius = 10;
// The outline between neighbouring segments is a hairline seam where the background shows
// through: every edge is inset by half of it. A seam of 0.45 points has the darkness of an
// 0.8-point outline of 55 % near-black over both fills, and costs no stroking, which keeps a
// frame to one polygon fill per segment.
constexpr double kOutlineSeam = 0.45;
// Arcs smaller than this, in device pixels, are not drawn.
constexpr double kInvisibleDevicePixels = 0.02;
// Arcs are drawn as chords that stray at most a quarter of a device pixel.
constexpr double kChordDevicePixels = 0.25;
constexpr double kEmptyRingWidth = 2;
constexpr int kCentreFontSize = 17;
constexpr int kCentreMinimumFontSize = 10;
constexpr double kCentreLabelInset = 3;
constexpr int kEmptyFontSize = 14;

// One pass of a box blur of radius `r` along rows (or columns) of a premultiplied image.
void boxBlurPass(QImage& image, int r, bool horizontal) {
  const int width = image.width();
  const int height = image.height();
  const int lines = horizontal ? height : width;
  const int length = horizontal ? width : height;
  std::vector<uint32_t> line(length);
  const int window = 2 * r + 1;
  for (int l = 0; l < lines; ++l) {
    auto pixel = [&](int i) -> uint32_t& {
      return horizontal ? reinterpret_cast<uint32_t*>(image.scanLine(l))[i]
                        : reinterpret_cast<uint32_t*>(image.scanLine(i))[l];
    };
    for (int i = 0; i < length; ++i) line[i] = pixel(i);
    int sum[4] = {0, 0, 0, 0};
    auto add = [&](int i, int sign) {
      if (i < 0 || i >= length) return;
      const uint32_t p = line[i];
      for (int c = 0; c < 4; ++c) sum[c] += sign * static_cast<int>((p >> (8 * c)) & 0xff);
    };
    for (int i = -r; i < r; ++i) add(i, 1);
    for (int i = 0; i < length; ++i) {
      add(i + r, 1);
      uint32_t out = 0;
      for (int c = 0; c < 4; ++c) out |= static_cast<uint32_t>(sum[c] / window) << (8 * c);
      pixel(i) = out;
      add(i - r, -1);
    }
  }
}

// A soft glow around `path`: the path filled with `color`, blurred by about `blurRadius` points,
// drawn beneath where the fill will go.
void drawGlow(QPainter& painter, const QPainterPath& path, const QColor& color, double blurRadius) {
  const double dpr = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
  const QRectF area = path.boundingRect().adjusted(-2 * blurRadius, -2 * blurRadius, 2 * blurRadius,
                                                   2 * blurRadius);
  const QSize pixels(static_cast<int>(std::ceil(area.width() * dpr)),
                     static_cast<int>(std::ceil(area.height() * dpr)));
  if (pixels.isEmpty()) return;
  QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
  image.setDevicePixelRatio(dpr);
  image.fill(Qt::transparent);
  {
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.translate(-area.topLeft());
    p.fillPath(path, color);
  }
  // Three box passes approximate a Gaussian whose spread is half the blur radius.
  const int r = std::max(1, static_cast<int>(std::lround(blurRadius * dpr / 2)));
  for (int pass = 0; pass < 3; ++pass) {
    boxBlurPass(image, r, true);
    boxBlurPass(image, r, false);
  }
  painter.drawImage(area.topLeft(), image);
}

double chordTolerance(const QPainter& painter) {
  const double dpr = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
  return kChordDevicePixels / dpr;
}

struct CentreLabel {
  QFont font;
  QString text;
};

// The label for `size` on the centre disc at `scale`, in the largest font that fits.
CentreLabel centreLabel(double scale, uint64_t size) {
  CentreLabel label{QGuiApplication::font(), QString::fromStdString(formatByteCount(size))};
  label.font.setWeight(QFont::Medium);
  // The widest line that stays inside the disc, a little in from its edge, at a text height.
  const double r = SunburstLayout::kCentreRadius * scale - kCentreLabelInset;
  auto room = [r](const QFontMetricsF& metrics) {
    const double half = metrics.height() / 2;
    return half < r ? 2 * std::sqrt(r * r - half * half) : 0.0;
  };
  for (int pixels = kCentreFontSize; pixels >= kCentreMinimumFontSize; --pixels) {
    label.font.setPixelSize(pixels);
    const QFontMetricsF metrics(label.font);
    if (metrics.horizontalAdvance(label.text) <= room(metrics)) return label;
  }
  const QFontMetricsF metrics(label.font);
  label.text = metrics.elidedText(label.text, Qt::ElideRight, room(metrics));
  return label;
}

}  // namespace

QPainterPath pathFromStart(double start, double end, double inner, double outer, QPointF center,
                           double scale) {
  const double ro = outer * scale;
  const double ri = inner * scale;
  const QRectF outerRect(center.x() - ro, center.y() - ro, 2 * ro, 2 * ro);
  const QRectF innerRect(center.x() - ri, center.y() - ri, 2 * ri, 2 * ri);
  QPainterPath path;
  path.moveTo(center.x() + offsetXAt(start, ro), center.y() + offsetYAt(start, ro));
  path.arcTo(outerRect, qtDegreesForAngle(start), qtSweepDegrees(start, end));
  path.arcTo(innerRect, qtDegreesForAngle(end), -qtSweepDegrees(start, end));
  path.closeSubpath();
  return path;
}

void sectorPolygon(QPolygonF& polygon, double start, double end, double inner, double outer,
                   QPointF center, double scale, double tolerance, double seam) {
  polygon.clear();
  double ro = outer * scale;
  double ri = std::max(0.0, inner * scale);
  const double span = end - start;
  if (span <= 0 || ro <= ri) return;
  // The seam insets every edge by half its width, but never by more than a quarter of the
  // segment's own width, so slivers stay visible.
  const double half = seam / 2;
  const double radialInset = std::min(half, (ro - ri) / 4);
  ro -= radialInset;
  ri += radialInset;
  auto arc = [&](double radius, bool forward) {
    const double inset = radius > 0 ? std::min(half / radius, span / 4) : 0;
    const double a = start + inset;
    const double b = end - inset;
    // Enough chords that none strays more than `tolerance` from the true arc.
    int steps = 1;
    if (radius > tolerance) {
      const double step = 2 * std::acos(1 - tolerance / radius);
      steps = std::clamp(static_cast<int>(std::ceil((b - a) / step)), 1, 1024);
    }
    const double delta = (forward ? 1 : -1) * (b - a) / steps;
    const double c = std::cos(delta);
    const double s = std::sin(delta);
    const double from = forward ? a : b;
    // Screen offsets of the chart angle, rotated by `delta` per chord.
    double x = offsetXAt(from, radius);
    double y = offsetYAt(from, radius);
    for (int i = 0; i <= steps; ++i) {
      polygon.append(QPointF(center.x() + x, center.y() + y));
      const double nx = x * c - y * s;
      y = x * s + y * c;
      x = nx;
    }
  };
  arc(ro, true);
  arc(ri, false);
}

std::vector<SunburstDrawnSegment> restingSegments(std::span<const SunburstSegment> segments,
                                                  double revealProgress,
                                                  double radialRevealProgress) {
  const double r = std::clamp(radialRevealProgress, 0.0, 1.0);
  const double c = SunburstLayout::kCentreRadius;
  std::vector<SunburstDrawnSegment> drawn;
  drawn.reserve(segments.size());
  for (const SunburstSegment& s : segments) {
    drawn.push_back({&s, s.startAngle, s.startAngle + (s.endAngle - s.startAngle) * revealProgress,
                     c + (s.innerRadius - c) * r, c + (s.outerRadius - c) * r, r});
  }
  return drawn;
}

QColor fillColor(const SunburstSegment& segment, double alpha, const SunburstHighlight& highlight) {
  if (highlight.selectedNode && segment.node != highlight.selectedNode) alpha *= kDimmedAlpha;
  SunburstColor base = baseColorForNode(*segment.node, segment.colorPosition, segment.depth);
  if (highlight.highlights(segment)) {
    const bool listHovered = segment.node == highlight.listHoveredNode;
    base = blendTowardWhite(base, listHovered                    ? kListHoverBlend
                                  : highlight.hoverFlickerBright ? kHoverBrightBlend
                                                                 : kHoverDimBlend);
  }
  return toQColor(base, alpha);
}

void drawSegment(QPainter& painter, const SunburstSegment& segment, double start, double end,
                 double inner, double outer, QPointF center, double scale, double alpha,
                 const SunburstHighlight& highlight) {
  if (end <= start || alpha <= 0) return;
  const QColor fill = fillColor(segment, alpha, highlight);
  if (highlight.listHoveredNode && segment.node == highlight.listHoveredNode) {
    const SunburstColor glow =
        blendTowardWhite({fill.redF(), fill.greenF(), fill.blueF(), 1.0}, kGlowBlend);
    drawGlow(painter, pathFromStart(start, end, inner, outer, center, scale),
             toQColor(glow, kGlowAlpha * fill.alphaF()), kGlowBlurRadius);
  }
  QPolygonF polygon;
  sectorPolygon(polygon, start, end, inner, outer, center, scale, chordTolerance(painter),
                kOutlineSeam);
  painter.setPen(Qt::NoPen);
  painter.setBrush(fill);
  painter.drawPolygon(polygon);
}

void drawSegments(QPainter& painter, std::span<const SunburstDrawnSegment> segments, QPointF center,
                  double scale, const SunburstHighlight& highlight) {
  // One polygon fill per segment and nothing else: this runs for every frame of a transition.
  const double tolerance = chordTolerance(painter);
  const bool glowing = highlight.listHoveredNode != nullptr;
  QPolygonF polygon;
  painter.setPen(Qt::NoPen);
  // Arcs covering less than this many square pixels (at full opacity) leave no visible trace; a
  // zoom has many of them, arriving from the outer edge with no width yet.
  const double dpr = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
  const double invisibleArea = kInvisibleDevicePixels / (dpr * dpr * scale * scale);
  for (const SunburstDrawnSegment& d : segments) {
    if (d.end <= d.start || d.alpha <= 0) continue;
    if ((d.end - d.start) * (d.outer * d.outer - d.inner * d.inner) * 0.5 * d.alpha < invisibleArea)
      continue;
    if (glowing && d.segment->node == highlight.listHoveredNode) {
      drawSegment(painter, *d.segment, d.start, d.end, d.inner, d.outer, center, scale, d.alpha,
                  highlight);
      painter.setPen(Qt::NoPen);
      continue;
    }
    sectorPolygon(polygon, d.start, d.end, d.inner, d.outer, center, scale, tolerance,
                  kOutlineSeam);
    QColor fill = fillColor(*d.segment, d.alpha, highlight);
    if (d.overBackground && fill.alphaF() < 1) {
      const double a = fill.alphaF();
      fill = QColor::fromRgbF(static_cast<float>(fill.redF() * a + kBackground.red * (1 - a)),
                              static_cast<float>(fill.greenF() * a + kBackground.green * (1 - a)),
                              static_cast<float>(fill.blueF() * a + kBackground.blue * (1 - a)));
    }
    painter.setBrush(fill);
    painter.drawPolygon(polygon);
  }
}

void drawBackground(QPainter& painter, const QRectF& bounds) {
  painter.fillRect(bounds, toQColor(kBackground));
}

void drawEmptyRoot(QPainter& painter, const QRectF& bounds, QPointF center) {
  QPen pen(toQColor(kEmptyRootRing));
  pen.setWidthF(kEmptyRingWidth);
  painter.setPen(pen);
  painter.setBrush(Qt::NoBrush);
  const double r = SunburstLayout::kEmptyRingRadius;
  painter.drawEllipse(center, r, r);
  QFont font = QGuiApplication::font();
  font.setPixelSize(kEmptyFontSize);
  painter.setFont(font);
  painter.setPen(toQColor(kEmptyRootText));
  const double top = center.y() + SunburstLayout::kEmptyTextOffset;
  painter.drawText(QRectF(bounds.left(), top, bounds.width(), bounds.bottom() - top + 100),
                   Qt::AlignHCenter | Qt::AlignTop, QStringLiteral("This folder is empty"));
}

void drawCentre(QPainter& painter, QPointF center, double scale, uint64_t size) {
  const double r = SunburstLayout::kCentreRadius * scale;
  painter.setPen(Qt::NoPen);
  painter.setBrush(toQColor(kBackground));
  painter.drawEllipse(center, r, r);
  const CentreLabel label = centreLabel(scale, size);
  painter.setFont(label.font);
  painter.setPen(toQColor(kAccentTeal));
  painter.drawText(QRectF(center.x() - r, center.y() - r, 2 * r, 2 * r), Qt::AlignCenter,
                   label.text);
}

void drawRestingChart(QPainter& painter, const QRectF& bounds, const SunburstLayout& layout,
                      const SunburstHighlight& highlight) {
  painter.setRenderHint(QPainter::Antialiasing);
  drawBackground(painter, bounds);
  const ScanNode* root = layout.rootNode();
  if (!root) return;
  const QPointF center = bounds.center();
  const double scale = SunburstLayout::scaleForSize(bounds.width(), bounds.height());
  if (root->size() == 0) {
    drawEmptyRoot(painter, bounds, center);
    return;
  }
  drawSegments(painter, restingSegments(layout.segments()), center, scale, highlight);
  drawCentre(painter, center, scale, root->size());
}

}  // namespace tw::sunburst
