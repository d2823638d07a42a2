#include "browser/sunburst_transition.h"

#include <algorithm>

#include "browser/sunburst_angles.h"

namespace tw {

// How an arc moves during a zoom. Both charts describe the same subtree: the anchor's subtree in
// the outer chart (the one where the anchor is a segment) is the whole inner chart, magnified.
// Every arc of that subtree therefore has a place in both charts: its angles map linearly between
// the anchor's span and the inner chart's full circle, and its ring moves by the anchor's depth
// plus one. An arc present in both lists moves from its old place to its new one; an arc present
// only in the new chart starts from where the mapping puts it in the old one (or, below the
// deepest ring, from the outer edge) and fades in; an arc only in the old chart stays put and
// fades out while the old chart gives way. The anchor itself swells to the full circle and sinks
// under the centre disc (zoom in), or rises from under the disc and shrinks to its arc (zoom out).
// Arcs outside the anchor's subtree in a zoom out have no old place: they fade in where they are,
// over the subtree still shrinking across them. Every other arc moves in step with its neighbours
// and so never passes over another.
// Places move only while the new chart grows; fades out run in the first phase, fades in in the
// second.
namespace {

using Ring = SunburstRing;

Ring ringOrEdge(unsigned depth) {
  if (depth > SunburstLayout::kMaximumDepth)
    return {SunburstLayout::kOuterEdge, SunburstLayout::kOuterEdge};
  return SunburstLayout::ringForDepth(depth);
}

double mapAngle(double angle, double fromStart, double fromEnd, double toStart, double toEnd) {
  const double span = fromEnd - fromStart;
  if (span <= 0) return toStart;
  return toStart + (angle - fromStart) / span * (toEnd - toStart);
}

double lerp(double a, double b, double t) {
  return a + (b - a) * t;
}

// The index one past the last descendant of the segment at `index` (segments are in pre-order).
std::size_t subtreeEnd(const std::vector<SunburstSegment>& segments, std::size_t index) {
  std::size_t end = index + 1;
  while (end < segments.size() && segments[end].depth > segments[index].depth) ++end;
  return end;
}

}  // namespace

SunburstTransition::SunburstTransition(Kind kind, std::vector<SunburstSegment> oldSegments,
                                       ScanNodeRef oldRoot,
                                       const std::vector<SunburstSegment>& newSegments, int origin,
                                       double oldStartAngle, double newStartAngle)
    : kind_(kind), oldSegments_(std::move(oldSegments)), oldRoot_(std::move(oldRoot)) {
  oldIndexByNode_.reserve(oldSegments_.size());
  for (std::size_t i = 0; i < oldSegments_.size(); ++i)
    oldIndexByNode_.emplace(oldSegments_[i].node, static_cast<int>(i));
  if (kind_ == Kind::None) return;

  std::unordered_map<const ScanNode*, int> newIndexByNode;
  newIndexByNode.reserve(newSegments.size());
  for (std::size_t i = 0; i < newSegments.size(); ++i)
    newIndexByNode.emplace(newSegments[i].node, static_cast<int>(i));

  const bool zoomIn = kind_ == Kind::ZoomIn;
  const std::vector<SunburstSegment>& outer = zoomIn ? oldSegments_ : newSegments;
  const SunburstSegment& anchor = outer[origin];
  origin_ = &anchor;
  const double innerStart = zoomIn ? newStartAngle : oldStartAngle;
  const unsigned shift = anchor.depth + 1;
  auto arcOf = [](const SunburstSegment& s) {
    return Arc{s.startAngle, s.endAngle, s.innerRadius, s.outerRadius};
  };
  // The anchor as the centre of the inner chart: the full circle, just under the disc's edge.
  const double anchorWidth = anchor.outerRadius - anchor.innerRadius;
  const Arc asCentre{innerStart, sunburst::kFullTurn, SunburstLayout::kCentreRadius - anchorWidth,
                     SunburstLayout::kCentreRadius};
  auto innerToOuter = [&](const SunburstSegment& s) {
    const Ring ring = ringOrEdge(s.depth + shift);
    return Arc{
        mapAngle(s.startAngle, innerStart, sunburst::kFullTurn, anchor.startAngle, anchor.endAngle),
        mapAngle(s.endAngle, innerStart, sunburst::kFullTurn, anchor.startAngle, anchor.endAngle),
        ring.innerRadius, ring.outerRadius};
  };
  auto outerToInner = [&](const SunburstSegment& s) {
    const Ring ring = SunburstLayout::ringForDepth(s.depth - shift);
    return Arc{
        mapAngle(s.startAngle, anchor.startAngle, anchor.endAngle, innerStart, sunburst::kFullTurn),
        mapAngle(s.endAngle, anchor.startAngle, anchor.endAngle, innerStart, sunburst::kFullTurn),
        ring.innerRadius, ring.outerRadius};
  };

  motions_.reserve(oldSegments_.size() + newSegments.size());
  // Old arcs with no counterpart give way first (beneath everything else).
  for (std::size_t i = 0; i < oldSegments_.size(); ++i) {
    const SunburstSegment& s = oldSegments_[i];
    if (zoomIn && static_cast<int>(i) == origin) continue;
    if (newIndexByNode.contains(s.node)) continue;
    motions_.push_back({&s, arcOf(s), arcOf(s), Fade::Out});
  }
  if (zoomIn) motions_.push_back({&anchor, arcOf(anchor), asCentre, Fade::None});
  const std::size_t subtreeFirst = zoomIn ? 0 : static_cast<std::size_t>(origin) + 1;
  const std::size_t subtreeLast =
      zoomIn ? newSegments.size() : subtreeEnd(newSegments, static_cast<std::size_t>(origin));
  for (std::size_t j = 0; j < newSegments.size(); ++j) {
    const SunburstSegment& s = newSegments[j];
    if (!zoomIn && static_cast<int>(j) == origin) {
      motions_.push_back({&s, asCentre, arcOf(s), Fade::None});
    } else if (auto old = oldIndexByNode_.find(s.node); old != oldIndexByNode_.end()) {
      motions_.push_back({&s, arcOf(oldSegments_[old->second]), arcOf(s), Fade::None});
    } else if (j >= subtreeFirst && j < subtreeLast) {
      motions_.push_back({&s, zoomIn ? innerToOuter(s) : outerToInner(s), arcOf(s), Fade::In});
    } else {
      // Fading in where the shrinking subtree still passes.
      motions_.push_back({&s, arcOf(s), arcOf(s), Fade::In, false});
    }
  }
}

int SunburstTransition::oldIndexOfNode(const ScanNode* node) const {
  auto it = oldIndexByNode_.find(node);
  return it == oldIndexByNode_.end() ? -1 : it->second;
}

void SunburstTransition::frame(double p, std::vector<SunburstDrawnSegment>& into) const {
  into.clear();
  const double oldPhase = std::clamp(p / kSplit, 0.0, 1.0);
  const double newPhase = std::clamp((p - kSplit) / (1 - kSplit), 0.0, 1.0);
  for (const Motion& m : motions_) {
    const double alpha = m.fade == Fade::Out ? 1 - oldPhase : m.fade == Fade::In ? newPhase : 1.0;
    if (alpha <= 0) continue;
    into.push_back({m.segment, lerp(m.from.start, m.to.start, newPhase),
                    lerp(m.from.end, m.to.end, newPhase), lerp(m.from.inner, m.to.inner, newPhase),
                    lerp(m.from.outer, m.to.outer, newPhase), alpha, m.overBackground});
  }
}

}  // namespace tw
