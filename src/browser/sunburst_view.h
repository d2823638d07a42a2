// Scan browser: the sunburst chart widget.
//
// SunburstView shows the tree below one scan node as concentric rings around a centre disc that
// carries the root's size. It owns a SunburstLayout (the segments and remembered colours), the
// selection, the hover state with its flicker and delayed preview, the animations between roots
// (sweep, zoom in, zoom out, rings growing from the centre) and a cached picture of the resting
// chart, so a repaint at rest only copies that picture and redraws the highlighted segments on
// top. All animations run on one frame timer at the display's rate and take their progress from
// elapsed time; they are skipped when the user prefers reduced motion. Pointer events are mapped to
// segments on the resting geometry and reported through signals; the browser owning the view
// decides what a click means.
#pragma once

#include <QEasingCurve>
#include <QPixmap>
#include <QTimer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "browser/sunburst_layout.h"
#include "browser/sunburst_painter.h"
#include "browser/sunburst_transition.h"

namespace tw {

class SunburstView : public QWidget {
  Q_OBJECT

 public:
  explicit SunburstView(QWidget* parent = nullptr);
  ~SunburstView() override;

  // The root and its segments.
  // Puts `root` at the centre, clears the selection and the hover, and rebuilds the segments.
  void setRootNode(ScanNodeRef root);
  // The same, with the zoom (into a folder that has a segment, or out to a folder whose chart
  // holds the old root) or else a sweep, when `animated` is set and motion is not reduced.
  void setRootNode(ScanNodeRef root, bool animated);
  // The first appearance of a chart: prepare hides the rings in the centre disc, animate grows
  // them out of it (at once under reduced motion).
  void prepareInitialRevealFromCenter();
  void animateInitialRevealFromCenter();
  ScanNode* rootNode() const { return layout_.rootNode(); }
  // Recomputes the segments after the tree below the root has changed.
  void rebuildSegments();
  // Draws nodes with `sizeOf` (SunburstLayout::setSizeFunction) and rebuilds.
  void setSizeFunction(SunburstLayout::SizeFunction sizeOf);
  const std::vector<SunburstSegment>& segments() const { return layout_.segments(); }
  const SunburstLayout& layout() const { return layout_; }
  SunburstLayout& layout() { return layout_; }

  // Selection and highlights.
  ScanNode* selectedNode() const { return selectedNode_; }
  void setSelectedNode(ScanNode* node);
  // The segment under the pointer, or null.
  const SunburstSegment* hoveredSegment() const;
  // Makes `segment` (an element of segments(), or null) the hovered one: withdraws a shown
  // preview, starts the flicker and the one-second preview timer. Nothing when it already is.
  void setHoveredSegmentAndStartFlicker(const SunburstSegment* segment);
  // Drops the hover, its flicker and any preview.
  void stopHoverFlicker();
  bool hoverFlickerBright() const { return hoverFlickerBright_; }
  void setHoverFlickerBright(bool bright);
  bool isHoverFlickering() const { return hoverFlickerTimer_.isActive(); }
  bool hoverSummaryVisible() const { return hoverSummaryVisible_; }
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

  // Animation state. Progress values are 1 at rest (transitionProgress 0); anything else paints
  // every frame afresh instead of the cached picture.
  double revealProgress() const { return revealProgress_; }
  double radialRevealProgress() const { return radialRevealProgress_; }
  double transitionProgress() const { return transitionProgress_; }
  void setRevealProgress(double progress);
  void setRadialRevealProgress(double progress);
  void setTransitionProgress(double progress);
  SunburstTransition::Kind transitionKind() const { return transition_.kind(); }
  const SunburstTransition& transition() const { return transition_; }
  uint64_t transitionGeneration() const { return transitionGeneration_; }
  uint64_t radialRevealGeneration() const { return radialRevealGeneration_; }
  bool isAnimating() const { return sweep_.running || radialReveal_.running; }
  // Seconds on a monotonic clock; animations read their progress from it. Tests may replace it
  // and call advanceAnimations() themselves.
  using Clock = std::function<double()>;
  void setAnimationClock(Clock clock);
  // Brings every running animation to the clock's present time; the frame timer calls this.
  void advanceAnimations();
  // The arcs of the current frame, in painting order.
  std::vector<SunburstDrawnSegment> frameSegments() const;
  // The size shown on the centre disc in the current frame.
  uint64_t centreSize() const;

  // Timings.
  static constexpr double kSweepSeconds = 0.68;
  static constexpr double kSweepStart = 0.02;
  static constexpr double kRadialRevealSeconds = 0.72;
  static constexpr int kFlickerMilliseconds = 110;
  static constexpr int kPreviewMilliseconds = 1000;

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
  // One animation: a value eased from `from` to `to` over `seconds`.
  struct Animation {
    bool running = false;
    double startTime = 0;
    double seconds = 0;
    double from = 0;
    double to = 1;
    uint64_t generation = 0;
    QEasingCurve curve;
  };
  void startAnimation(Animation& animation, double seconds, double from, double to,
                      uint64_t generation, const QEasingCurve& curve);
  // The eased value of `animation` now; stops it (returning `to`) once its time is up.
  double step(Animation& animation, double now, bool& finished);
  void finishTransition(uint64_t generation);
  void finishRadialReveal(uint64_t generation);
  void clearTransition();
  double now() const;

  SunburstLayout layout_;
  ScanNode* selectedNode_ = nullptr;
  int hoveredIndex_ = -1;
  bool hoverFlickerBright_ = false;
  bool hoverSummaryVisible_ = false;
  uint64_t hoverGeneration_ = 0;
  QTimer hoverFlickerTimer_;
  ScanNode* listHoveredNode_ = nullptr;
  double revealProgress_ = 1;
  double radialRevealProgress_ = 1;
  double transitionProgress_ = 0;
  SunburstTransition transition_;
  uint64_t oldRootSize_ = 0;
  uint64_t transitionGeneration_ = 0;
  uint64_t radialRevealGeneration_ = 0;
  Animation sweep_;  // transitionProgress for a zoom, else revealProgress
  Animation radialReveal_;
  QTimer frameTimer_;
  Clock clock_;
  QPixmap restingPicture_;
  bool restingPictureValid_ = false;
};

}  // namespace tw
