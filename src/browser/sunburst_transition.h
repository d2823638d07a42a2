// Scan browser: the zoom between two sunburst charts.
//
// When the chart's root changes to a folder that had a segment in the old chart (zoom in) or to a
// folder in whose chart the old root has a segment (zoom out), SunburstTransition pairs the two
// segment lists by node and works out, once, where every arc comes from and where it goes. Each
// frame then only interpolates: frame(p) gives the arcs to paint at progress p (0…1, already
// eased). It owns copies of the old segments and a handle on the old root, so the old arcs stay
// valid while the new chart is current.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "browser/sunburst_layout.h"
#include "browser/sunburst_painter.h"

namespace tw {

class SunburstTransition {
 public:
  enum class Kind { None = 0, ZoomIn = 1, ZoomOut = 2 };

  // The split of a zoom: the old chart gives way during the first 28 %, the new one grows in the
  // remaining 72 %; the centre label switches to the new root at 52 %.
  static constexpr double kSplit = 0.28;
  static constexpr double kLabelSwitch = 0.52;

  SunburstTransition() = default;
  // A zoom from `oldSegments` (the chart of `oldRoot`) to `newSegments`. `origin` is the anchor:
  // for a zoom in, the index of the new root's segment in the old list; for a zoom out, the index
  // of the old root's segment in the new list. `newSegments` must outlive the transition
  // unchanged (the view ends the transition before it rebuilds).
  SunburstTransition(Kind kind, std::vector<SunburstSegment> oldSegments, ScanNodeRef oldRoot,
                     const std::vector<SunburstSegment>& newSegments, int origin,
                     double oldStartAngle, double newStartAngle);

  Kind kind() const { return kind_; }
  bool isZoom() const { return kind_ != Kind::None; }
  const ScanNode* oldRoot() const { return oldRoot_.get(); }
  const std::vector<SunburstSegment>& oldSegments() const { return oldSegments_; }
  // The segment anchoring the zoom (in the old list for a zoom in, the new list for a zoom out).
  const SunburstSegment* origin() const { return origin_; }
  // Index of `node`'s segment in the old list, or -1.
  int oldIndexOfNode(const ScanNode* node) const;

  // The arcs of the frame at progress `p`, in painting order.
  void frame(double p, std::vector<SunburstDrawnSegment>& into) const;

 private:
  struct Arc {
    double start = 0, end = 0, inner = 0, outer = 0;
  };
  enum class Fade { None, Out, In };
  // One arc on the move: it goes from `from` to `to` while the new chart grows, fading as told.
  struct Motion {
    const SunburstSegment* segment = nullptr;
    Arc from;
    Arc to;
    Fade fade = Fade::None;
    bool overBackground = true;  // no other arc passes beneath it
  };

  Kind kind_ = Kind::None;
  std::vector<SunburstSegment> oldSegments_;
  ScanNodeRef oldRoot_;
  std::unordered_map<const ScanNode*, int> oldIndexByNode_;
  const SunburstSegment* origin_ = nullptr;
  std::vector<Motion> motions_;
};

}  // namespace tw
