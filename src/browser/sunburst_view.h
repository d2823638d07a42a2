// Scan browser: the sunburst chart widget.
//
// SunburstView shows the tree below one scan node as concentric rings around a centre disc that
// carries the root's size. It owns a SunburstLayout (the segments and remembered colours), the
// selection, the hover state and a cached picture of the resting chart, so a repaint at rest only
// copies that picture and redraws the highlighted segments on top. Pointer events are mapped to
// segments on the resting geometry and reported through signals; the browser owning the view
// decides what a click means.
#pragma once

#include <QPixmap>
#include <QWidget>
#include <cstdint>
#include <optional>
#include <vector>

#include "browser/sunburst_layout.h"
#include "browser/sunburst_painter.h"

namespace tw {

class SunburstView : public QWidget {
  Q_OBJECT

 public:
  explicit SunburstView(QWidget* parent = nullptr);
  ~SunburstView() override;

  // The root and its segments.
  // Puts `root` at the centre, clears the selection and the hover, and rebuilds the segments.
  void setRootNode(ScanNodeRef root);
  // The same, with the zoom or sweep between the old and new root when `animated` is set.
  void setRootNode(ScanNodeRef root, bool animated);
  // The first appearance of a chart: rings grow out of the centre disc.
  void prepareInitialRevealFromCenter();
  void animateInitialRevealFromCenter();
  ScanNode* rootNode() const { return layout_.rootNode(); }
  // Recomputes the segments after the tree below the root has changed.
  void rebuildSegments();
  const std::vector<SunburstSegment>& segments() const { return layout_.segments(); }
  const SunburstLayout& layout() const { return layout_; }
  SunburstLayout& layout() { return layout_; }

  // Selection and highlights.
  ScanNode* selectedNode() const { return selectedNode_; }
  void setSelectedNode(ScanNode* node);
  // The segment under the pointer, or null.
  const SunburstSegment* hoveredSegment() const;
  // Makes `segment` (an element of segments(), or null) the hovered one; reports a change.
  void setHoveredSegment(const SunburstSegment* segment);
  bool hoverFlickerBright() const { return hoverFlickerBright_; }
  void setHoverFlickerBright(bool bright);
  ScanNode* listHoveredNode() const { return listHoveredNode_; }
  // Highlights the node of the list row under the pointer; redraws only on a change.
  void setListHoveredNode(ScanNode* node);

  // Colours.
  std::optional<QColor> colorForNode(const ScanNode* node) const;
  QColor rootColor() const;

  // Geometry and hit-testing in widget coordinates.
  QPointF chartCenter() const;
  double chartScale() const;
  const SunburstSegment* segmentAtPoint(QPointF point) const;

  // Reveal state (1 at rest). Values below 1 paint every frame afresh instead of the cache.
  double revealProgress() const { return revealProgress_; }
  double radialRevealProgress() const { return radialRevealProgress_; }
  void setRevealProgress(double progress);
  void setRadialRevealProgress(double progress);

 signals:
  // A segment was clicked; its node is now the selection.
  void didChooseNode(tw::ScanNode* node);
  // The centre disc was clicked while the root has a parent.
  void didRequestParent();
  // The pointer moved onto another segment's node, or off every segment (null).
  void didHoverNode(tw::ScanNode* node);
  // The pointer has rested on a segment long enough to preview its node, or the preview is
  // withdrawn (null).
  void didPreviewNode(tw::ScanNode* node);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;

  // The segments drawn in the current frame: the resting chart unless a reveal is running.
  // Transitions paint their own list through paintFrame().
  std::vector<SunburstDrawnSegment> frameSegments() const;
  // Paints one frame from scratch: background, `segments`, centre disc with `centreSize`.
  void paintFrame(QPainter& painter, std::span<const SunburstDrawnSegment> segments,
                  uint64_t centreSize) const;
  bool isResting() const;
  // Drops the cached resting picture; the next paint renders it again.
  void invalidateRestingPicture();

 private:
  SunburstHighlight highlight() const;
  void renderRestingPicture();
  void paintHighlightsOver(QPainter& painter) const;
  void hoverAt(QPointF point);

  SunburstLayout layout_;
  ScanNode* selectedNode_ = nullptr;
  int hoveredIndex_ = -1;
  bool hoverFlickerBright_ = false;
  ScanNode* listHoveredNode_ = nullptr;
  double revealProgress_ = 1;
  double radialRevealProgress_ = 1;
  QPixmap restingPicture_;
  bool restingPictureValid_ = false;
};

}  // namespace tw
