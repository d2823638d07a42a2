// The chart's animations on a clock the tests set, and its hover timing on real time.
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>
#include <numbers>

#include "browser/sunburst_view.h"
#include "browser_test_support.h"
#include "support/scan_trees.h"

namespace tw {
namespace {

using test::addFile;
using test::addFolder;
using test::makeFolderRoot;
using Kind = SunburstTransition::Kind;

constexpr double kPi = std::numbers::pi;

// root 2000: first 1500 (a 1000, sub 500 holding c 500), second 499 (inner 499), tiny 1 (too
// thin to draw: 2π / 2000 < 0.004).
class SunburstAnimationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qputenv("TARNWELL_REDUCE_MOTION", "0");
    root_ = makeFolderRoot(2000);
    first_ = addFolder(root_.get(), "first", 1500);
    addFile(first_, "a", 1000);
    sub_ = addFolder(first_, "sub", 500);
    c_ = addFile(sub_, "c", 500);
    second_ = addFolder(root_.get(), "second", 499);
    addFile(second_, "inner", 499);
    tiny_ = addFolder(root_.get(), "tiny", 1);
    addFile(tiny_, "t", 1);
    view_.setAnimationClock([this] { return clock_; });
    view_.resize(400, 400);
    view_.setRootNode(root_);
  }
  void TearDown() override { qputenv("TARNWELL_REDUCE_MOTION", "0"); }

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
  QPoint pointAt(double angle, double radius) const { return test::pointAt(view_, angle, radius); }

  double clock_ = 0;
  ScanNodeRef root_;
  ScanNode* first_ = nullptr;
  ScanNode* sub_ = nullptr;
  ScanNode* c_ = nullptr;
  ScanNode* second_ = nullptr;
  ScanNode* tiny_ = nullptr;
  SunburstView view_;
};

void expectArc(const std::optional<SunburstDrawnSegment>& d, double start, double end, double inner,
               double outer, double alpha = 1) {
  ASSERT_TRUE(d.has_value());
  EXPECT_NEAR(d->start, start, 1e-9);
  EXPECT_NEAR(d->end, end, 1e-9);
  EXPECT_NEAR(d->inner, inner, 1e-9);
  EXPECT_NEAR(d->outer, outer, 1e-9);
  EXPECT_NEAR(d->alpha, alpha, 1e-9);
}

TEST_F(SunburstAnimationTest,
       ZoomInMovesTheSubtreeOntoTheWholeCircleAndZoomOutAnchorsOnTheOldRoot) {
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

TEST_F(SunburstAnimationTest, AnArcTooThinForTheOldChartGrowsOutOfWhereItWouldHaveBeen) {
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

TEST_F(SunburstAnimationTest, AFolderWithoutSegmentSweepsOpenInstead) {
  view_.setRootNode(tiny_->ref(), true);
  EXPECT_EQ(view_.transitionKind(), Kind::None);
  EXPECT_EQ(view_.revealProgress(), SunburstView::kSweepStart);
  EXPECT_TRUE(view_.isAnimating());
  at(0.34);
  EXPECT_NEAR(view_.revealProgress(), 0.02 + 0.98 * 0.5, 0.01);
  const auto half = drawn(view_.segments().front().node);
  ASSERT_TRUE(half.has_value());
  EXPECT_NEAR(half->end - half->start, 2 * kPi * view_.revealProgress(), 1e-9);
  at(0.69);
  EXPECT_EQ(view_.revealProgress(), 1);
  EXPECT_FALSE(view_.isAnimating());
}

TEST_F(SunburstAnimationTest, ASecondRootChangeKeepsItsTransitionWhenTheFirstWouldHaveEnded) {
  view_.setRootNode(first_->ref(), true);
  const uint64_t firstGeneration = view_.transitionGeneration();
  at(0.3);
  clock_ = 0.3;
  view_.setRootNode(root_, true);
  EXPECT_GT(view_.transitionGeneration(), firstGeneration);
  // 0.68 s after the first change: the first zoom is over, the second is not.
  at(0.7);
  EXPECT_TRUE(view_.isAnimating());
  EXPECT_EQ(view_.transitionKind(), Kind::ZoomOut);
  EXPECT_FALSE(view_.transition().oldSegments().empty());
  EXPECT_LT(view_.transitionProgress(), 1);
  at(0.99);
  EXPECT_EQ(view_.transitionKind(), Kind::None);
}

TEST_F(SunburstAnimationTest, RingsGrowFromTheCentreWithEaseOutAndARootChangeCutsThemShort) {
  view_.prepareInitialRevealFromCenter();
  EXPECT_EQ(view_.radialRevealProgress(), 0);
  expectArc(drawn(first_), 0, 1.5 * kPi, 50, 50, 0);
  view_.animateInitialRevealFromCenter();
  // Ease-out (0, 0, 0.58, 1) at half the time: the Bézier's x is 0.5 at s ≈ 0.625, y ≈ 0.684.
  at(0.36);
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

TEST_F(SunburstAnimationTest, ReducedMotionSkipsEveryAnimationButStillPreviews) {
  qputenv("TARNWELL_REDUCE_MOTION", "1");
  view_.setRootNode(first_->ref(), true);
  EXPECT_FALSE(view_.isAnimating());
  EXPECT_EQ(view_.transitionKind(), Kind::None);
  EXPECT_EQ(view_.revealProgress(), 1);
  view_.prepareInitialRevealFromCenter();
  view_.animateInitialRevealFromCenter();
  EXPECT_EQ(view_.radialRevealProgress(), 1);
  EXPECT_FALSE(view_.isAnimating());

  view_.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view_));
  QSignalSpy previewed(&view_, &SunburstView::didPreviewNode);
  QTest::mouseMove(&view_, pointAt(0.5, 67));  // "a"
  ASSERT_NE(view_.hoveredSegment(), nullptr);
  EXPECT_FALSE(view_.isHoverFlickering());
  ASSERT_TRUE(previewed.wait(3000));
  EXPECT_EQ(previewed[0][0].value<ScanNode*>(), view_.hoveredSegment()->node);
}

TEST_F(SunburstAnimationTest, MovingOnWithinASecondCancelsThePreviewAndLeavingWithdrawsIt) {
  view_.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view_));
  QSignalSpy previewed(&view_, &SunburstView::didPreviewNode);
  QTest::mouseMove(&view_, pointAt(0.5 * kPi, 67));  // first
  EXPECT_TRUE(view_.isHoverFlickering());
  QTest::qWait(300);
  QTest::mouseMove(&view_, pointAt(1.6 * kPi, 67));  // second
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
}

}  // namespace
}  // namespace tw
