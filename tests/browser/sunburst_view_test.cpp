// The sunburst widget: its pixels, real pointer events, the hover timing on real time, and its
// animations on a clock the tests set.
#include "browser/sunburst_view.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QSignalSpy>
#include <QTest>
#include <numbers>

#include "browser/sunburst_colors.h"
#include "browser_test_support.h"
#include "support/scan_trees.h"

namespace tw {
namespace {

using test::addFile;
using test::addFolder;
using test::makeFolderRoot;
using Kind = SunburstTransition::Kind;

constexpr double kPi = std::numbers::pi;
// Colour positions of the two drawn folders: 1500/2000 × 0.5, and 0.75 + 499/2000 × 0.5.
constexpr double kFirstHue = 0.375, kSecondHue = 0.87475;

// root 2000: first 1500 over [0, 1.5π] (a 1000, sub 500 holding c 500), second 499 (inner 499),
// tiny 1 (too thin to draw: 2π / 2000 < 0.004). Angle 0 is three o'clock, so "first" fills the
// circle clockwise from there to twelve o'clock.
class SunburstViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qputenv("TARNWELL_REDUCE_MOTION", "0");
    root_ = makeFolderRoot(2000);
    first_ = addFolder(root_.get(), "first", 1500);
    addFile(first_, "a", 1000);
    sub_ = addFolder(first_, "sub", 500);
    c_ = addFile(sub_, "c", 500);
    second_ = addFolder(root_.get(), "second", 499);
    inner_ = addFile(second_, "inner", 499);
    tiny_ = addFolder(root_.get(), "tiny", 1);
    addFile(tiny_, "t", 1);
    view_.setAnimationClock([this] { return clock_; });
    view_.resize(400, 400);
    view_.setRootNode(root_);
    view_.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view_));
    QTest::mouseMove(&view_, QPoint(2, 2));  // wherever an earlier test left the pointer
  }
  void TearDown() override { qputenv("TARNWELL_REDUCE_MOTION", "0"); }

  QPoint pointAt(double angle, double radius) const { return test::pointAt(view_, angle, radius); }
  // Expects the pixel at `angle` and `radius` to be `expected`, give or take rounding.
  void expectPixel(double angle, double radius, const QColor& expected) {
    const QColor actual = view_.grab().toImage().pixelColor(pointAt(angle, radius));
    EXPECT_NEAR(actual.red(), expected.red(), 2) << actual.name().toStdString();
    EXPECT_NEAR(actual.green(), expected.green(), 2) << actual.name().toStdString();
    EXPECT_NEAR(actual.blue(), expected.blue(), 2) << actual.name().toStdString();
  }
  // Moves the clock to `seconds` and lets the animations catch up.
  void at(double seconds) {
    clock_ = seconds;
    view_.advanceAnimations();
  }
  // The arc drawn for `node` in the current frame, or none.
  std::optional<SunburstDrawnSegment> drawn(const ScanNode* node) const {
    for (const SunburstDrawnSegment& d : view_.frameSegments())
      if (d.segment->node == node) return d;
    return std::nullopt;
  }

  double clock_ = 0;
  ScanNodeRef root_;
  ScanNode *first_ = nullptr, *sub_ = nullptr, *c_ = nullptr, *second_ = nullptr, *inner_ = nullptr,
           *tiny_ = nullptr;
  SunburstView view_;
};

// `color` at `alpha` over the chart's background.
QColor over(const SunburstColor& color, double alpha) {
  const SunburstColor& b = sunburst::kBackground;
  return QColor::fromRgbF(color.red * alpha + b.red * (1 - alpha),
                          color.green * alpha + b.green * (1 - alpha),
                          color.blue * alpha + b.blue * (1 - alpha));
}

void expectArc(const std::optional<SunburstDrawnSegment>& d, double start, double end, double inner,
               double outer, double alpha = 1) {
  ASSERT_TRUE(d.has_value());
  EXPECT_NEAR(d->start, start, 1e-9);
  EXPECT_NEAR(d->end, end, 1e-9);
  EXPECT_NEAR(d->inner, inner, 1e-9);
  EXPECT_NEAR(d->outer, outer, 1e-9);
  EXPECT_NEAR(d->alpha, alpha, 1e-9);
}

TEST_F(SunburstViewTest, PointerReportsEachNewNodeOnceClicksSelectAndTheCentreAsksForTheParent) {
  QSignalSpy hovered(&view_, &SunburstView::didHoverNode);
  // The second move stays on "first"; the last one is in the gap between the rings.
  for (const auto& [angle, radius] : {std::pair{kPi / 2, 67.0},
                                      {kPi / 2 + 0.2, 70},
                                      {1.7 * kPi, 67},
                                      {1.7 * kPi, 100},
                                      {1.7 * kPi, 83}})
    QTest::mouseMove(&view_, pointAt(angle, radius));
  ASSERT_EQ(hovered.count(), 4);
  const ScanNode* hoveredNodes[] = {first_, second_, inner_, nullptr};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(hovered[i][0].value<ScanNode*>(), hoveredNodes[i]) << i;
  EXPECT_EQ(view_.hoveredSegment(), nullptr);

  QSignalSpy chosen(&view_, &SunburstView::didChooseNode);
  QSignalSpy parent(&view_, &SunburstView::didRequestParent);
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(1.7 * kPi, 100));
  ASSERT_EQ(chosen.count(), 1);
  EXPECT_EQ(chosen[0][0].value<ScanNode*>(), inner_);
  EXPECT_EQ(view_.selectedNode(), inner_);
  // Empty space, an empty ring and the centre of a root without parent do nothing.
  for (const QPoint& p : {QPoint(2, 2), pointAt(kPi / 2, 130), pointAt(0, 10)})
    QTest::mouseClick(&view_, Qt::LeftButton, {}, p);
  EXPECT_EQ(chosen.count(), 1);
  EXPECT_EQ(parent.count(), 0);
  EXPECT_EQ(view_.selectedNode(), inner_);

  view_.setRootNode(second_->ref());
  EXPECT_EQ(view_.selectedNode(), nullptr);
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(0.3, 49));
  EXPECT_EQ(parent.count(), 1);
}

TEST_F(SunburstViewTest, PaintsFoldersByHueAndLightensHoverAndListHoverAndDimsAllButTheSelection) {
  const SunburstColor base = sunburst::hueColor(kFirstHue, 0);
  const QImage image = view_.grab().toImage();
  EXPECT_EQ(image.size(), QSize(400, 400));
  expectPixel(kPi / 2, 67, toQColor(base));
  expectPixel(1.7 * kPi, 67, toQColor(sunburst::hueColor(kSecondHue, 0)));
  expectPixel(1.7 * kPi, 100, toQColor(sunburst::kFileGrey));
  // Free of rings: the centre disc away from its label, the ring beyond the file "a".
  expectPixel(0.5, 40, toQColor(sunburst::kBackground));
  expectPixel(kPi / 2, 130, toQColor(sunburst::kBackground));
  // The centre label is teal text on the disc.
  bool teal = false;
  for (int x = -30; x <= 30 && !teal; ++x)
    for (int y = -6; y <= 6 && !teal; ++y) {
      const QColor c = image.pixelColor(view_.chartCenter().toPoint() + QPoint(x, y));
      teal = c.green() > 150 && c.red() < 120;
    }
  EXPECT_TRUE(teal);
  // The browser takes the same colours for its title.
  EXPECT_EQ(view_.colorForNode(first_), toQColor(base));
  EXPECT_EQ(view_.colorForNode(root_.get()), std::nullopt);
  EXPECT_EQ(view_.rootColor(), toQColor(sunburst::kAccentTeal));

  QTest::mouseMove(&view_, pointAt(kPi / 2, 67));
  EXPECT_TRUE(view_.hoverFlickerBright());
  expectPixel(kPi / 2, 67, toQColor(sunburst::blendTowardWhite(base, 0.3)));
  view_.setHoverFlickerBright(false);
  expectPixel(kPi / 2, 67, toQColor(sunburst::blendTowardWhite(base, 0.08)));
  QTest::mouseMove(&view_, QPoint(2, 2));  // leaving the chart drops the highlight
  expectPixel(kPi / 2, 67, toQColor(base));
  view_.setListHoveredNode(first_);
  expectPixel(kPi / 2, 67, toQColor(sunburst::blendTowardWhite(base, 0.34)));
  view_.setListHoveredNode(nullptr);

  // Selecting "second" dims every other segment to 32 %; a hovered dimmed one only lightens.
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(1.7 * kPi, 67));
  expectPixel(kPi / 2, 67, over(base, 0.32));
  expectPixel(1.7 * kPi, 67, toQColor(sunburst::hueColor(kSecondHue, 0)));
  expectPixel(1.7 * kPi, 100, over(sunburst::kFileGrey, 0.32));
  QTest::mouseMove(&view_, pointAt(kPi / 2, 67));
  expectPixel(kPi / 2, 67, over(sunburst::blendTowardWhite(base, 0.3), 0.32));
  view_.setRootNode(second_->ref());
  EXPECT_EQ(view_.rootColor(), toQColor(sunburst::hueColor(kSecondHue, 0)));
}

TEST_F(SunburstViewTest, ListHoverRedrawsOnlyWhenTheNodeChanges) {
  struct PaintCounter : QObject {
    int paints = 0;
    bool eventFilter(QObject*, QEvent* event) override {
      paints += event->type() == QEvent::Paint;
      return false;
    }
  } counter;
  view_.installEventFilter(&counter);
  int seen = 0;
  for (const auto& [node, repaints] : {std::pair{first_, true}, {first_, false}, {nullptr, true}}) {
    view_.setListHoveredNode(node);
    QTest::qWait(50);
    EXPECT_EQ(counter.paints > seen, repaints);
    seen = counter.paints;
  }
}

TEST_F(SunburstViewTest, EmptyFolderShowsAFaintRingAndAMessage) {
  view_.setRootNode(makeFolderRoot(0, "/empty"));
  EXPECT_TRUE(view_.segments().empty());
  // The 2-pixel ring at radius 64 (not scaled): white at 7.5 % over the background.
  for (double angle : {0.0, 1.5 * kPi})
    expectPixel(angle, 64 / view_.chartScale(), over({1, 1, 1}, 0.075));
  expectPixel(0, 40 / view_.chartScale(), toQColor(sunburst::kBackground));
  // Grey text below the ring, starting 82 pixels under the centre; nothing above that line.
  const QImage image = view_.grab().toImage();
  const int centreY = view_.chartCenter().toPoint().y();
  int textPixels = 0;
  int pixelsAbove = 0;
  for (int y = centreY + 66; y < centreY + 110; ++y)
    for (int x = 0; x < image.width(); ++x)
      if (image.pixelColor(x, y).red() > 60) (y < centreY + 82 ? pixelsAbove : textPixels)++;
  EXPECT_GT(textPixels, 20);
  EXPECT_EQ(pixelsAbove, 0);
}

TEST(SunburstCentreLabel, StaysInsideTheDiscOfTheSmallestChart) {
  SunburstView view;
  view.resize(320, 320);                                      // the smallest the browser makes it
  view.setRootNode(makeFolderRoot(999'900'000'000'000'000));  // "999.9 PB" and no rings
  const QImage image = view.grab().toImage();
  const QPointF centre = view.chartCenter();
  const double r = SunburstLayout::kCentreRadius * view.chartScale();
  int inside = 0, outside = 0;
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x)
      if (image.pixelColor(x, y).green() > 80)
        (std::hypot(x + 0.5 - centre.x(), y + 0.5 - centre.y()) < r ? inside : outside)++;
  EXPECT_GT(inside, 20);
  EXPECT_EQ(outside, 0);
}

TEST_F(SunburstViewTest, ZoomInMovesTheSubtreeOntoTheWholeCircleAndZoomOutAnchorsOnTheOldRoot) {
  view_.setRootNode(first_->ref(), true);
  EXPECT_EQ(view_.transitionKind(), Kind::ZoomIn);
  ASSERT_NE(view_.transition().origin(), nullptr);
  EXPECT_EQ(view_.transition().origin()->node, first_);
  // At the start the old chart stands as it was: sub on ring 1 over [π, 1.5π].
  at(0);
  expectArc(drawn(sub_), kPi, 1.5 * kPi, 84, 114);
  expectArc(drawn(c_), kPi, 1.5 * kPi, 116, 146);
  expectArc(drawn(second_), 1.5 * kPi, 1.5 * kPi + 2 * kPi * 499 / 2000, 52, 82);
  // Halfway through the old chart's phase (p = 0.14) the folders outside fade to half.
  view_.setTransitionProgress(0.14);
  expectArc(drawn(second_), 1.5 * kPi, 1.5 * kPi + 2 * kPi * 499 / 2000, 52, 82, 0.5);
  expectArc(drawn(sub_), kPi, 1.5 * kPi, 84, 114);
  // Halfway through the new chart's phase (p = 0.64) every arc is halfway to its new place and
  // the anchor halfway to the full circle under the centre disc.
  view_.setTransitionProgress(0.64);
  EXPECT_FALSE(drawn(second_).has_value());
  expectArc(drawn(sub_), (kPi + 4 * kPi / 3) / 2, 1.75 * kPi, 68, 98);
  expectArc(drawn(first_), 0, 1.75 * kPi, 36, 66);
  view_.setTransitionProgress(1);
  expectArc(drawn(sub_), 4 * kPi / 3, 2 * kPi, 52, 82);
  expectArc(drawn(c_), 4 * kPi / 3, 2 * kPi, 84, 114);
  // The label shows the old root's size until 52 %.
  view_.setTransitionProgress(0.51);
  EXPECT_EQ(view_.centreSize(), 2000u);
  view_.setTransitionProgress(0.52);
  EXPECT_EQ(view_.centreSize(), 1500u);
  // The eased clock: ease-in-out is symmetric, so half the time is half the way.
  at(0.34);
  EXPECT_NEAR(view_.transitionProgress(), 0.5, 0.01);
  at(0.7);
  EXPECT_FALSE(view_.isAnimating());
  EXPECT_EQ(view_.transitionKind(), Kind::None);
  EXPECT_TRUE(view_.transition().oldSegments().empty());
  EXPECT_EQ(view_.revealProgress(), 1);

  // Back to the parent: the zoom out is anchored on the old root's segment.
  view_.setRootNode(root_, true);
  EXPECT_EQ(view_.transitionKind(), Kind::ZoomOut);
  ASSERT_NE(view_.transition().origin(), nullptr);
  EXPECT_EQ(view_.transition().origin()->node, first_);
  EXPECT_EQ(view_.transition().oldRoot(), first_);
  // The old root starts as the full circle under the disc; its neighbours are not yet shown.
  view_.setTransitionProgress(0);
  expectArc(drawn(first_), 0, 2 * kPi, 20, 50);
  expectArc(drawn(sub_), 4 * kPi / 3, 2 * kPi, 52, 82);
  EXPECT_FALSE(drawn(second_).has_value());
  view_.setTransitionProgress(0.64);
  expectArc(drawn(first_), 0, 1.75 * kPi, 36, 66);
  expectArc(drawn(second_), 1.5 * kPi, 1.5 * kPi + 2 * kPi * 499 / 2000, 52, 82, 0.5);
}

TEST_F(SunburstViewTest, AnArcTooThinForTheOldChartGrowsOutOfWhereItWouldHaveBeen) {
  // "small" spans 2π / 2000 < 0.004 around the root, 2π / 1000 ≥ 0.004 around "big".
  ScanNodeRef root = makeFolderRoot(2000);
  ScanNode* big = addFolder(root.get(), "big", 1000);
  addFile(big, "f", 999);
  ScanNode* small = addFile(big, "small", 1);
  addFolder(root.get(), "other", 1000);
  view_.setRootNode(root);
  ASSERT_EQ(view_.layout().segmentForNode(small), nullptr);
  view_.setRootNode(big->ref(), true);
  ASSERT_EQ(view_.transitionKind(), Kind::ZoomIn);
  // It starts on ring 1 inside big's old span [0, π], where the zoom's mapping puts it, unseen.
  view_.setTransitionProgress(0.28);
  EXPECT_FALSE(drawn(small).has_value());
  view_.setTransitionProgress(0.64);
  expectArc(drawn(small), (0.999 * kPi + 1.998 * kPi) / 2, 1.5 * kPi, 68, 98, 0.5);
}

TEST_F(SunburstViewTest, SweepsRingGrowthAndQuickRootChangesEachFinishOnTheirOwnClock) {
  // Going into a folder that has no segment sweeps the new chart open instead of zooming.
  view_.setRootNode(tiny_->ref(), true);
  EXPECT_EQ(view_.transitionKind(), Kind::None);
  EXPECT_EQ(view_.revealProgress(), SunburstView::kSweepStart);
  at(0.34);
  EXPECT_NEAR(view_.revealProgress(), 0.02 + 0.98 * 0.5, 0.01);
  const auto half = drawn(view_.segments().front().node);
  ASSERT_TRUE(half.has_value());
  EXPECT_NEAR(half->end - half->start, 2 * kPi * view_.revealProgress(), 1e-9);
  at(0.69);
  EXPECT_EQ(view_.revealProgress(), 1);
  EXPECT_FALSE(view_.isAnimating());

  // A second root change keeps its zoom when the first one would have ended.
  clock_ = 1;
  view_.setRootNode(root_, false);
  view_.setRootNode(first_->ref(), true);
  const uint64_t firstGeneration = view_.transitionGeneration();
  at(1.3);
  view_.setRootNode(root_, true);
  EXPECT_GT(view_.transitionGeneration(), firstGeneration);
  at(1.7);
  EXPECT_TRUE(view_.isAnimating());
  EXPECT_EQ(view_.transitionKind(), Kind::ZoomOut);
  EXPECT_FALSE(view_.transition().oldSegments().empty());
  EXPECT_LT(view_.transitionProgress(), 1);
  at(1.99);
  EXPECT_EQ(view_.transitionKind(), Kind::None);

  // Rings grow out of the centre with ease-out (0, 0, 0.58, 1): at half the time the Bézier's x
  // is 0.5 at s ≈ 0.625, where y ≈ 0.684. A root change cuts the growth short.
  view_.prepareInitialRevealFromCenter();
  EXPECT_EQ(view_.radialRevealProgress(), 0);
  expectArc(drawn(first_), 0, 1.5 * kPi, 50, 50, 0);
  view_.animateInitialRevealFromCenter();
  at(2.35);
  EXPECT_NEAR(view_.radialRevealProgress(), 0.684, 0.01);
  const double r = view_.radialRevealProgress();
  expectArc(drawn(first_), 0, 1.5 * kPi, 50 + 2 * r, 50 + 32 * r, r);
  view_.setRootNode(second_->ref(), false);
  EXPECT_EQ(view_.radialRevealProgress(), 1);
  EXPECT_FALSE(view_.isAnimating());
  // An empty root has nothing to grow.
  view_.setRootNode(makeFolderRoot(0), false);
  view_.prepareInitialRevealFromCenter();
  EXPECT_EQ(view_.radialRevealProgress(), 1);
}

TEST_F(SunburstViewTest, HoverPreviewsAfterASecondOnOneSegmentAndReducedMotionOnlyStopsMotion) {
  view_.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view_));
  QSignalSpy previewed(&view_, &SunburstView::didPreviewNode);
  QTest::mouseMove(&view_, pointAt(0.5 * kPi, 67));  // first
  EXPECT_TRUE(view_.isHoverFlickering());
  QTest::qWait(300);
  QTest::mouseMove(&view_, pointAt(1.6 * kPi, 67));  // second, within the first's second
  ASSERT_TRUE(previewed.wait(3000));
  QTest::qWait(200);
  ASSERT_EQ(previewed.count(), 1);
  EXPECT_EQ(previewed[0][0].value<ScanNode*>(), second_);
  EXPECT_TRUE(view_.hoverSummaryVisible());
  // Leaving the chart stops the flicker and withdraws the preview.
  QEvent leave(QEvent::Leave);
  QCoreApplication::sendEvent(&view_, &leave);
  EXPECT_FALSE(view_.isHoverFlickering());
  EXPECT_EQ(view_.hoveredSegment(), nullptr);
  ASSERT_EQ(previewed.count(), 2);
  EXPECT_EQ(previewed[1][0].value<ScanNode*>(), nullptr);
  // A root change does the same to a pending preview.
  QTest::mouseMove(&view_, pointAt(1.65 * kPi, 67));
  ASSERT_NE(view_.hoveredSegment(), nullptr);
  view_.setRootNode(second_->ref(), false);
  QTest::qWait(1300);
  EXPECT_EQ(previewed.count(), 2);

  // Reduced motion: no zoom, sweep, ring growth or flicker, but the preview still comes.
  qputenv("TARNWELL_REDUCE_MOTION", "1");
  view_.setRootNode(root_, true);
  EXPECT_FALSE(view_.isAnimating());
  EXPECT_EQ(view_.transitionKind(), Kind::None);
  EXPECT_EQ(view_.revealProgress(), 1);
  view_.prepareInitialRevealFromCenter();
  view_.animateInitialRevealFromCenter();
  EXPECT_EQ(view_.radialRevealProgress(), 1);
  QTest::mouseMove(&view_, pointAt(0.5, 67));  // "a"
  ASSERT_NE(view_.hoveredSegment(), nullptr);
  EXPECT_FALSE(view_.isHoverFlickering());
  ASSERT_TRUE(previewed.wait(3000));
  EXPECT_EQ(previewed.last()[0].value<ScanNode*>(), view_.hoveredSegment()->node);
}

}  // namespace
}  // namespace tw
