#include "browser/sunburst_view.h"

#include <QElapsedTimer>
#include <QEnterEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QScreen>
#include <algorithm>
#include <cmath>

#include "platform/reduce_motion.h"

namespace tw {

namespace {

// The system's timing curves as cubic Béziers through (0, 0) and (1, 1).
QEasingCurve bezierCurve(double x1, double y1, double x2, double y2) {
  QEasingCurve curve(QEasingCurve::BezierSpline);
  curve.addCubicBezierSegment(QPointF(x1, y1), QPointF(x2, y2), QPointF(1, 1));
  return curve;
}
const QEasingCurve& easeInOut() {
  static const QEasingCurve curve = bezierCurve(0.42, 0, 0.58, 1);
  return curve;
}
const QEasingCurve& easeOut() {
  static const QEasingCurve curve = bezierCurve(0, 0, 0.58, 1);
  return curve;
}

}  // namespace

SunburstView::SunburstView(QWidget* parent) : QWidget(parent) {
  setMouseTracking(true);
  setFocusPolicy(Qt::ClickFocus);
  setAttribute(Qt::WA_OpaquePaintEvent);
  hoverFlickerTimer_.setInterval(kFlickerMilliseconds);
  connect(&hoverFlickerTimer_, &QTimer::timeout, this,
          [this] { setHoverFlickerBright(!hoverFlickerBright_); });
  frameTimer_.setTimerType(Qt::PreciseTimer);
  connect(&frameTimer_, &QTimer::timeout, this, &SunburstView::advanceAnimations);
  auto elapsed = std::make_shared<QElapsedTimer>();
  elapsed->start();
  clock_ = [elapsed] { return static_cast<double>(elapsed->nsecsElapsed()) / 1e9; };
}

SunburstView::~SunburstView() = default;

void SunburstView::setAnimationClock(Clock clock) {
  clock_ = std::move(clock);
}

double SunburstView::now() const {
  return clock_();
}

void SunburstView::setRootNode(ScanNodeRef root) {
  setRootNode(std::move(root), false);
}

void SunburstView::setRootNode(ScanNodeRef root, bool animated) {
  stopHoverFlicker();
  ++radialRevealGeneration_;
  radialReveal_.running = false;
  radialRevealProgress_ = 1;

  ScanNodeRef oldRoot = layout_.rootRef();
  // The new root's segment in the old chart anchors a zoom in.
  const int zoomInOrigin = root && oldRoot ? layout_.indexOfNode(root.get()) : -1;
  std::vector<SunburstSegment> oldSegments = layout_.segments();
  const double oldStart = oldRoot ? SunburstLayout::childrenStartAngle(*oldRoot) : 0;
  const uint64_t oldSize = oldRoot ? oldRoot->size() : 0;

  // The old arcs point into the layout's list; let the old transition go before the list changes.
  clearTransition();
  // The layout remembers the colour position of the new root's segment (fixed for video folders).
  layout_.setRootNode(root);
  selectedNode_ = nullptr;
  invalidateRestingPicture();

  if (!animated || prefersReducedMotion()) {
    ++transitionGeneration_;
    sweep_.running = false;
    revealProgress_ = 1;
    transitionProgress_ = 0;
    update();
    return;
  }
  // Else the old root's segment in the new chart anchors a zoom out.
  const int zoomOutOrigin =
      zoomInOrigin < 0 && root && oldRoot ? layout_.indexOfNode(oldRoot.get()) : -1;
  const uint64_t generation = ++transitionGeneration_;
  const auto kind = zoomInOrigin >= 0    ? SunburstTransition::Kind::ZoomIn
                    : zoomOutOrigin >= 0 ? SunburstTransition::Kind::ZoomOut
                                         : SunburstTransition::Kind::None;
  const double newStart = root ? SunburstLayout::childrenStartAngle(*root) : 0;
  if (kind == SunburstTransition::Kind::None) oldSegments.clear();
  transition_ = SunburstTransition(
      kind, std::move(oldSegments), oldRoot, layout_.segments(),
      kind == SunburstTransition::Kind::ZoomIn ? zoomInOrigin : zoomOutOrigin, oldStart, newStart);
  oldRootSize_ = oldSize;
  transitionProgress_ = 0;
  if (transition_.isZoom()) {
    revealProgress_ = 1;
    startAnimation(sweep_, kSweepSeconds, 0, 1, generation, easeInOut());
  } else {
    revealProgress_ = kSweepStart;
    startAnimation(sweep_, kSweepSeconds, kSweepStart, 1, generation, easeInOut());
  }
  update();
}

void SunburstView::prepareInitialRevealFromCenter() {
  const ScanNode* root = layout_.rootNode();
  if (root && root->size() > 0 && !prefersReducedMotion()) {
    ++radialRevealGeneration_;
    radialReveal_.running = false;
    setRadialRevealProgress(0);
  } else {
    setRadialRevealProgress(1);
  }
}

void SunburstView::animateInitialRevealFromCenter() {
  if (radialRevealProgress_ < 1 && !prefersReducedMotion()) {
    startAnimation(radialReveal_, kRadialRevealSeconds, radialRevealProgress_, 1,
                   radialRevealGeneration_, easeOut());
  } else {
    radialReveal_.running = false;
    setRadialRevealProgress(1);
  }
}

void SunburstView::startAnimation(Animation& animation, double seconds, double from, double to,
                                  uint64_t generation, const QEasingCurve& curve) {
  animation = {true, now(), seconds, from, to, generation, curve};
  if (!frameTimer_.isActive()) {
    // One frame per refresh of the screen the view is on.
    const QScreen* display = screen();
    const double rate = display && display->refreshRate() > 1 ? display->refreshRate() : 60.0;
    frameTimer_.start(std::max(1, static_cast<int>(std::floor(1000.0 / rate))));
  }
}

double SunburstView::step(Animation& animation, double time, bool& finished) {
  const double t = animation.seconds > 0 ? (time - animation.startTime) / animation.seconds : 1;
  finished = t >= 1;
  if (finished) {
    animation.running = false;
    return animation.to;
  }
  const double eased = animation.curve.valueForProgress(std::max(0.0, t));
  return animation.from + (animation.to - animation.from) * eased;
}

void SunburstView::advanceAnimations() {
  const double time = now();
  bool finished = false;
  if (sweep_.running) {
    const uint64_t generation = sweep_.generation;
    const double value = step(sweep_, time, finished);
    if (transition_.isZoom())
      setTransitionProgress(value);
    else
      setRevealProgress(value);
    if (finished) finishTransition(generation);
  }
  if (radialReveal_.running) {
    const uint64_t generation = radialReveal_.generation;
    setRadialRevealProgress(step(radialReveal_, time, finished));
    if (finished) finishRadialReveal(generation);
  }
  if (!isAnimating()) frameTimer_.stop();
}

void SunburstView::finishTransition(uint64_t generation) {
  // A newer root change owns the transition state now.
  if (generation != transitionGeneration_) return;
  clearTransition();
  revealProgress_ = 1;
  update();
}

void SunburstView::finishRadialReveal(uint64_t generation) {
  if (generation != radialRevealGeneration_) return;
  setRadialRevealProgress(1);
}

void SunburstView::clearTransition() {
  sweep_.running = false;
  transition_ = SunburstTransition();
  transitionProgress_ = 0;
  oldRootSize_ = 0;
}

void SunburstView::rebuildSegments() {
  stopHoverFlicker();
  // A running zoom holds pointers into the segment list: finish it first.
  if (transition_.isZoom()) {
    ++transitionGeneration_;
    clearTransition();
    revealProgress_ = 1;
  }
  layout_.rebuildSegments();
  invalidateRestingPicture();
}

void SunburstView::setSizeFunction(SunburstLayout::SizeFunction sizeOf) {
  layout_.setSizeFunction(std::move(sizeOf));
  rebuildSegments();
  update();
}

void SunburstView::setSelectedNode(ScanNode* node) {
  if (node == selectedNode_) return;
  selectedNode_ = node;
  invalidateRestingPicture();
}

const SunburstSegment* SunburstView::hoveredSegment() const {
  return hoveredIndex_ < 0 ? nullptr : &layout_.segments()[hoveredIndex_];
}

void SunburstView::setHoveredSegmentAndStartFlicker(const SunburstSegment* segment) {
  const int index = segment ? static_cast<int>(segment - layout_.segments().data()) : -1;
  if (index == hoveredIndex_) return;
  hoverFlickerTimer_.stop();
  if (hoverSummaryVisible_) {
    hoverSummaryVisible_ = false;
    emit didPreviewNode(nullptr);
  }
  hoveredIndex_ = index;
  const uint64_t generation = ++hoverGeneration_;
  hoverFlickerBright_ = index >= 0;
  if (index >= 0) {
    if (!prefersReducedMotion()) hoverFlickerTimer_.start();
    ScanNode* node = segment->node;
    QTimer::singleShot(kPreviewMilliseconds, this, [this, generation, index, node] {
      if (generation != hoverGeneration_ || index != hoveredIndex_) return;
      hoverSummaryVisible_ = true;
      emit didPreviewNode(node);
    });
  }
  update();
  emit didHoverNode(segment ? segment->node : nullptr);
}

void SunburstView::stopHoverFlicker() {
  ++hoverGeneration_;
  hoverFlickerTimer_.stop();
  if (hoverSummaryVisible_) {
    hoverSummaryVisible_ = false;
    emit didPreviewNode(nullptr);
  }
  const bool hadHover = hoveredIndex_ >= 0;
  hoveredIndex_ = -1;
  hoverFlickerBright_ = false;
  update();
  if (hadHover) emit didHoverNode(nullptr);
}

void SunburstView::setHoverFlickerBright(bool bright) {
  if (bright == hoverFlickerBright_) return;
  hoverFlickerBright_ = bright;
  if (hoveredIndex_ >= 0) update();
}

void SunburstView::setListHoveredNode(ScanNode* node) {
  if (node == listHoveredNode_) return;
  listHoveredNode_ = node;
  update();
}

std::optional<QColor> SunburstView::colorForNode(const ScanNode* node) const {
  if (auto color = layout_.colorForNode(node)) return toQColor(*color);
  return std::nullopt;
}

QColor SunburstView::rootColor() const {
  return toQColor(layout_.rootColor());
}

QPointF SunburstView::chartCenter() const {
  return QRectF(rect()).center();
}

double SunburstView::chartScale() const {
  return SunburstLayout::scaleForSize(width(), height());
}

const SunburstSegment* SunburstView::segmentAtPoint(QPointF point) const {
  const QPointF offset = point - chartCenter();
  return layout_.segmentAtOffset(offset.x(), offset.y(), chartScale());
}

void SunburstView::setRevealProgress(double progress) {
  if (progress == revealProgress_) return;
  revealProgress_ = progress;
  update();
}

void SunburstView::setRadialRevealProgress(double progress) {
  if (progress == radialRevealProgress_) return;
  radialRevealProgress_ = progress;
  update();
}

void SunburstView::setTransitionProgress(double progress) {
  if (progress == transitionProgress_) return;
  transitionProgress_ = progress;
  update();
}

SunburstHighlight SunburstView::highlight() const {
  return {selectedNode_, hoveredSegment(), hoverFlickerBright_, listHoveredNode_};
}

bool SunburstView::isResting() const {
  return !transition_.isZoom() && revealProgress_ >= 1 && radialRevealProgress_ >= 1;
}

void SunburstView::invalidateRestingPicture() {
  restingPictureValid_ = false;
  update();
}

std::vector<SunburstDrawnSegment> SunburstView::frameSegments() const {
  if (!transition_.isZoom())
    return sunburst::restingSegments(layout_.segments(), revealProgress_, radialRevealProgress_);
  std::vector<SunburstDrawnSegment> drawn;
  transition_.frame(transitionProgress_, drawn);
  // Rings still growing out of the centre grow wherever the zoom puts them.
  const double r = std::clamp(radialRevealProgress_, 0.0, 1.0);
  if (r < 1) {
    const double c = SunburstLayout::kCentreRadius;
    for (SunburstDrawnSegment& d : drawn) {
      d.inner = c + (d.inner - c) * r;
      d.outer = c + (d.outer - c) * r;
      d.alpha *= r;
    }
  }
  return drawn;
}

uint64_t SunburstView::centreSize() const {
  if (transition_.isZoom() && transitionProgress_ < SunburstTransition::kLabelSwitch)
    return oldRootSize_;
  const ScanNode* root = layout_.rootNode();
  return root ? root->size() : 0;
}

void SunburstView::paintFrame(QPainter& painter, std::span<const SunburstDrawnSegment> segments,
                              uint64_t centreSize) const {
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF bounds(rect());
  sunburst::drawBackground(painter, bounds);
  const ScanNode* root = layout_.rootNode();
  if (!root) return;
  if (root->size() == 0) {
    sunburst::drawEmptyRoot(painter, bounds, chartCenter());
    return;
  }
  sunburst::drawSegments(painter, segments, chartCenter(), chartScale(), highlight());
  sunburst::drawCentre(painter, chartCenter(), chartScale(), centreSize);
}

void SunburstView::renderRestingPicture() {
  const qreal dpr = devicePixelRatioF();
  const QSize pixels = (QSizeF(size()) * dpr).toSize();
  if (restingPicture_.size() != pixels) restingPicture_ = QPixmap(pixels);
  restingPicture_.setDevicePixelRatio(dpr);
  QPainter painter(&restingPicture_);
  painter.setRenderHint(QPainter::Antialiasing);
  // The cached picture shows the selection but no hover, which changes too often to re-render.
  SunburstHighlight selectionOnly;
  selectionOnly.selectedNode = selectedNode_;
  sunburst::drawRestingChart(painter, QRectF(rect()), layout_, selectionOnly);
  restingPictureValid_ = true;
}

void SunburstView::paintHighlightsOver(QPainter& painter) const {
  const SunburstHighlight h = highlight();
  if (!h.hoveredSegment && !h.listHoveredNode) return;
  const QPointF center = chartCenter();
  const double scale = chartScale();
  const QColor background = toQColor(sunburst::kBackground);
  QPolygonF area;
  auto redraw = [&](const SunburstSegment& s) {
    // Clear the segment's area back to the background, then draw it highlighted.
    sunburst::sectorPolygon(area, s.startAngle, s.endAngle, s.innerRadius, s.outerRadius, center,
                            scale, 0.1);
    painter.setPen(Qt::NoPen);
    painter.setBrush(background);
    painter.drawPolygon(area);
    sunburst::drawSegment(painter, s, s.startAngle, s.endAngle, s.innerRadius, s.outerRadius,
                          center, scale, 1.0, h);
  };
  const SunburstSegment* listHovered = layout_.segmentForNode(h.listHoveredNode);
  if (h.hoveredSegment && h.hoveredSegment != listHovered) redraw(*h.hoveredSegment);
  if (listHovered) redraw(*listHovered);
}

void SunburstView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  if (!isResting()) {
    paintFrame(painter, frameSegments(), centreSize());
    return;
  }
  if (!restingPictureValid_ || restingPicture_.devicePixelRatio() != devicePixelRatioF())
    renderRestingPicture();
  painter.drawPixmap(0, 0, restingPicture_);
  painter.setRenderHint(QPainter::Antialiasing);
  paintHighlightsOver(painter);
}

void SunburstView::resizeEvent(QResizeEvent* event) {
  invalidateRestingPicture();
  QWidget::resizeEvent(event);
}

void SunburstView::hoverAt(QPointF point) {
  setHoveredSegmentAndStartFlicker(segmentAtPoint(point));
}

void SunburstView::mouseMoveEvent(QMouseEvent* event) {
  hoverAt(event->position());
}

void SunburstView::enterEvent(QEnterEvent* event) {
  hoverAt(event->position());
}

void SunburstView::leaveEvent(QEvent*) {
  stopHoverFlicker();
}

void SunburstView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    QWidget::mousePressEvent(event);
    return;
  }
  const QPointF offset = event->position() - chartCenter();
  if (SunburstLayout::isInCentreDisc(offset.x(), offset.y(), chartScale())) {
    const ScanNode* root = layout_.rootNode();
    if (root && root->parent()) emit didRequestParent();
    return;
  }
  if (const SunburstSegment* segment = segmentAtPoint(event->position())) {
    setSelectedNode(segment->node);
    emit didChooseNode(segment->node);
  }
}

}  // namespace tw
