// Scan browser: the sunburst chart's layout.
//
// SunburstLayout turns the tree below one scan node (the chart's root) into the list of arcs the
// chart draws: the root's children form the innermost ring around a centre disc, their children
// the next ring, and so on, down to 11 rings. It owns the root (and so keeps its tree alive), the
// segment list, and the colour positions remembered for nodes that have been shown as root. It
// maps points back to segments on the resting geometry. It is plain computation: painting and
// events live in SunburstView.
//
// Radii are in unscaled chart units (the outermost edge lies at 246); multiply by scaleForSize()
// to get widget pixels. Angles are chart angles (sunburst_angles.h).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "browser/sunburst_colors.h"
#include "scan/scan_node.h"

namespace tw {

// One drawn arc: a node of the tree at its place on the chart.
struct SunburstSegment {
  ScanNode* node = nullptr;  // kept alive by the layout's root
  double startAngle = 0;     // radians
  double endAngle = 0;       // radians, always greater than startAngle
  double innerRadius = 0;    // unscaled
  double outerRadius = 0;    // unscaled
  double colorPosition = 0;  // place on the colour wheel, 0 ≤ value < 1
  unsigned depth = 0;        // ring number; 0 is next to the centre disc
};

// The radial extent of one ring.
struct SunburstRing {
  double innerRadius = 0;
  double outerRadius = 0;
};

class SunburstLayout {
 public:
  // Geometry constants.
  static constexpr double kMinimumSpan = 0.004;   // radians; thinner children are not drawn
  static constexpr unsigned kMaximumDepth = 10;   // deepest ring drawn
  static constexpr double kCentreRadius = 50;     // the centre disc; rings grow out of it
  static constexpr double kOuterEdge = 246;       // outer edge of the deepest ring
  static constexpr double kEmptyRingRadius = 64;  // the ring of an empty root
  static constexpr double kEmptyTextOffset = 82;  // top of "This folder is empty" below centre
  static constexpr double kVideoColorPosition = 0.02;

  // The ring of `depth`: thick 30-unit rings from 52 for depths 0 to 4, thin 4-unit rings from
  // 212 for depths 5 to 10, 2 units apart.
  static SunburstRing ringForDepth(unsigned depth);
  // Pixels per chart unit in a view of this size: the chart fills 92 % of the shorter side, never
  // drawn larger than its design size.
  static double scaleForSize(double width, double height);
  // Where the root's children begin: 0, or for a disk's root the share of the circle its free
  // space takes, so the used bytes end at a full turn.
  static double childrenStartAngle(const ScanNode& root);

  // The root and its segments.
  // Shows `root` at the centre: remembers the colour position its segment had in the current
  // chart (a fixed one for video folders), forgets the selection's layout and rebuilds.
  void setRootNode(ScanNodeRef root);
  ScanNode* rootNode() const { return root_.get(); }
  const ScanNodeRef& rootRef() const { return root_; }
  // Recomputes the segments from the root, after the tree below it has changed.
  void rebuildSegments();
  // The size each node is drawn with, in place of its scanned size: the browser takes away what
  // the Delete Queue holds, so the rings show the disk as it will look after a cleanup (a node
  // drawn with 0 disappears with everything below it). Null draws scanned sizes. Takes effect at
  // the next rebuild.
  using SizeFunction = std::function<uint64_t(const ScanNode*)>;
  void setSizeFunction(SizeFunction sizeOf) { sizeOf_ = std::move(sizeOf); }
  const std::vector<SunburstSegment>& segments() const { return segments_; }
  // The layout step: appends segments for `children` over [start, end] on ring `depth` and
  // recurses into each drawn child, parents before descendants.
  void appendChildren(std::span<ScanNode* const> children, double start, double end, unsigned depth,
                      std::vector<SunburstSegment>& into) const;
  // The segment of `node` in the current chart, or null.
  const SunburstSegment* segmentForNode(const ScanNode* node) const;
  int indexOfNode(const ScanNode* node) const;

  // Colour positions remembered for roots. Entries of trees that have gone away are ignored.
  void rememberColorPosition(ScanNode* root, double position);
  std::optional<double> rememberedColorPosition(const ScanNode* root) const;

  // Colours.
  // The fill of `node`'s segment before highlights, or none when it has no segment.
  std::optional<SunburstColor> colorForNode(const ScanNode* node) const;
  // The root's colour: the depth-0 hue of its remembered position, else the accent teal.
  SunburstColor rootColor() const;

  // Hit-testing on the resting geometry, for a point given as an offset from the centre in
  // pixels. The latest segment wins, so a boundary belongs to the later of two neighbours.
  const SunburstSegment* segmentAtOffset(double dx, double dy, double scale) const;
  // Index into segments() of the same search, or -1.
  int indexAtOffset(double dx, double dy, double scale) const;
  static bool isInCentreDisc(double dx, double dy, double scale);

 private:
  struct Remembered {
    std::weak_ptr<ScanNode> tree;
    double position = 0;
  };

  ScanNodeRef root_;
  SizeFunction sizeOf_;
  std::vector<SunburstSegment> segments_;
  std::unordered_map<const ScanNode*, int> indexByNode_;
  std::unordered_map<const ScanNode*, Remembered> colorPositionsByRoot_;
};

}  // namespace tw
