#include "browser/sunburst_view.h"

#include <QEnterEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPathStroker>

namespace tw {

SunburstView::SunburstView(QWidget* parent) : QWidget(parent) {
  setMouseTracking(true);
  setFocusPolicy(Qt::ClickFocus);
  setAttribute(Qt::WA_OpaquePaintEvent);
}

SunburstView::~SunburstView() = default;

void SunburstView::setRootNode(ScanNodeRef root, bool /*animated*/) {
  setRootNode(std::move(root));
}

void SunburstView::prepareInitialRevealFromCenter() { setRadialRevealProgress(1); }

void SunburstView::animateInitialRevealFromCenter() { setRadialRevealProgress(1); }

void SunburstView::setRootNode(ScanNodeRef root) {
  setHoveredSegment(nullptr);
  selectedNode_ = nullptr;
  layout_.setRootNode(std::move(root));
  invalidateRestingPicture();
}

void SunburstView::rebuildSegments() {
  setHoveredSegment(nullptr);
  layout_.rebuildSegments();
  invalidateRestingPicture();
}

void SunburstView::setSelectedNode(ScanNode* node) {
  if (node == selectedNode_) return;
  selectedNode_ = node;
  invalidateRestingPicture();
}

const SunburstSegment* SunburstView::hoveredSegment() const {
  return hoveredIndex_ < 0 ? nullptr : &layout_.segments()[hoveredIndex_];
}

void SunburstView::setHoveredSegment(const SunburstSegment* segment) {
  const int index = segment ? static_cast<int>(segment - layout_.segments().data()) : -1;
  if (index == hoveredIndex_) return;
  hoveredIndex_ = index;
  hoverFlickerBright_ = index >= 0;
  update();
  emit didHoverNode(segment ? segment->node : nullptr);
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

SunburstHighlight SunburstView::highlight() const {
  return {selectedNode_, hoveredSegment(), hoverFlickerBright_, listHoveredNode_};
}

bool SunburstView::isResting() const {
  return revealProgress_ >= 1 && radialRevealProgress_ >= 1;
}

void SunburstView::invalidateRestingPicture() {
  restingPictureValid_ = false;
  update();
}

std::vector<SunburstDrawnSegment> SunburstView::frameSegments() const {
  return sunburst::restingSegments(layout_.segments(), revealProgress_, radialRevealProgress_);
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
  QPainterPathStroker stroker;
  stroker.setWidth(1.0);
  auto redraw = [&](const SunburstSegment& s) {
    // Clear the segment's area and outline back to the background, then draw it highlighted.
    const QPainterPath path = sunburst::pathFromStart(s.startAngle, s.endAngle, s.innerRadius,
                                                      s.outerRadius, center, scale);
    painter.fillPath(path, background);
    painter.fillPath(stroker.createStroke(path), background);
    sunburst::drawSegment(painter, s, s.startAngle, s.endAngle, s.innerRadius, s.outerRadius,
                          center, scale, 1.0, h);
  };
  const SunburstSegment* listHovered = layout_.segmentForNode(h.listHoveredNode);
  if (h.hoveredSegment && h.hoveredSegment != listHovered) redraw(*h.hoveredSegment);
  if (listHovered) redraw(*listHovered);
}

void SunburstView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const ScanNode* root = layout_.rootNode();
  if (!isResting()) {
    paintFrame(painter, frameSegments(), root ? root->size() : 0);
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
  setHoveredSegment(segmentAtPoint(point));
}

void SunburstView::mouseMoveEvent(QMouseEvent* event) {
  hoverAt(event->position());
}

void SunburstView::enterEvent(QEnterEvent* event) {
  hoverAt(event->position());
}

void SunburstView::leaveEvent(QEvent*) {
  setHoveredSegment(nullptr);
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
