// The sunburst chart: its layout checked against figures worked out by hand, and the widget's
// pixels, pointer events, hover timing on real time, and animations on a clock the tests set.
#include <QImage>
#include <cstdio>

#include "browser/sunburst_colors.h"
#include "browser/sunburst_layout.h"
#include "browser_test_support.h"

namespace tw {
namespace {

SunburstLayout layoutFor(ScanNodeRef root, std::optional<double> rememberedPosition = {}) {
  SunburstLayout layout;
  if (rememberedPosition) layout.rememberColorPosition(root.get(), *rememberedPosition);
  layout.setRootNode(std::move(root));
  return layout;
}

// One line per segment, in order: name, ring, angles in multiples of π, radii, colour position.
test::Names describe(const SunburstLayout& layout) {
  test::Names lines;
  for (const SunburstSegment& s : layout.segments()) {
    char line[300];
    std::snprintf(line, sizeof line, "%s %u %.4g-%.4g %g-%g %.4g",
                  std::string(s.node->name()).c_str(), s.depth, s.startAngle / kPi,
                  s.endAngle / kPi, s.innerRadius, s.outerRadius, s.colorPosition);
    lines.push_back(line);
  }
  return lines;
}

// The node hit at offset (dx, dy) from the centre, in pixels with y down, or null.
const ScanNode* nodeAt(const SunburstLayout& layout, double dx, double dy, double scale = 1) {
  const SunburstSegment* s = layout.segmentAtOffset(dx, dy, scale);
  return s ? s->node : nullptr;
}

TEST(SunburstLayoutTest,
     ChildrenShareTheirParentsArcInOrderDisksOnlyTheirUsedShareAndPointsHitClockwise) {
  // 12: d6 (a1 4, a2 2 (f 2)), f3 3, d2 2, "smaller objects…" 1.
  ScanNodeRef root = makeFolderRoot(12);
  ScanNode* d6 = addFolder(root.get(), "d6", 6);
  ScanNode* a1 = addFolder(d6, "a1", 4);
  addFile(addFolder(d6, "a2", 2), "f", 2);
  ScanNode* f3 = addFile(root.get(), "f3", 3);
  addFolder(root.get(), "d2", 2);
  ScanNode* smaller = addFolder(root.get(), kSmallerObjectsName, 1);
  smaller->setAggregate(true);
  // Two sub-folders: the midpoints of their size shares win over a remembered position; files
  // and groups take 0, and a folder's position counts its siblings only.
  const SunburstLayout layout = layoutFor(root, 0.61);
  EXPECT_EQ(describe(layout), (test::Names{"d6 0 0-1 52-82 0.375", "a1 1 0-0.6667 84-114 0.3333",
                                           "a2 1 0.6667-1 84-114 0.8333", "f 2 0.6667-1 116-146 0",
                                           "f3 0 1-1.5 52-82 0", "d2 0 1.5-1.833 52-82 0.875",
                                           "smaller objects… 0 1.833-2 52-82 0"}));

  // Angle 0 points right and angles grow clockwise on screen (y down); a boundary belongs to the
  // later segment, radii are inclusive at both edges and scale with the view.
  const std::tuple<double, double, double, const ScanNode*> points[] = {
      {60, 0, 1, d6},        {0, 60, 1, d6},         {-60, 0, 1, f3},     {60, -1e-9, 1, smaller},
      {0, 52, 1, d6},        {0, 82, 1, d6},         {0, 83, 1, nullptr}, {0, 84, 1, a1},
      {0, 51.9, 1, nullptr}, {0, 114.1, 1, nullptr}, {0, 41, 0.5, d6},    {0, 41.5, 0.5, nullptr},
      {0, 26, 0.5, d6},      {0, 25.9, 0.5, nullptr}};
  for (const auto& [dx, dy, scale, hit] : points)
    EXPECT_EQ(nodeAt(layout, dx, dy, scale), hit) << dx << ", " << dy << " × " << scale;
  EXPECT_TRUE(SunburstLayout::isInCentreDisc(0, 24.9, 0.5));
  EXPECT_FALSE(SunburstLayout::isInCentreDisc(0, 25, 0.5));
  // Qt counts degrees counter-clockwise from three o'clock, so six o'clock is −90°.
  EXPECT_NEAR(sunburst::qtDegreesForAngle(0), 0, 1e-12);
  EXPECT_NEAR(sunburst::qtDegreesForAngle(kPi / 2), -90, 1e-12);
  EXPECT_NEAR(sunburst::qtSweepDegrees(0, kPi / 2), -90, 1e-12);
  // The chart fills 92 % of the shorter side, never beyond its design size.
  EXPECT_EQ(SunburstLayout::scaleForSize(526.1, 2000), 1.0);
  EXPECT_NEAR(SunburstLayout::scaleForSize(600, 400), 400 * 0.46 / 242, 1e-12);

  // No size, no root, or children that weigh nothing: no segments.
  ScanNodeRef weightless = makeFolderRoot(5);
  addFile(weightless.get(), "zero", 0);
  for (const ScanNodeRef& empty : {makeFolderRoot(0), ScanNodeRef(), weightless})
    EXPECT_TRUE(layoutFor(empty).segments().empty());

  // A disk 25 % full fills the quarter of the circle up to three o'clock.
  ScanNodeRef disk = ScanNode::makeRoot("/", true);
  disk->setSize(250);
  disk->setVolumeRoot(true);
  disk->setVolumeCapacity(1000);
  addFolder(disk.get(), "home", 200);
  addFolder(disk.get(), "usr", 50);
  SunburstLayout diskLayout = layoutFor(disk);
  EXPECT_EQ(describe(diskLayout),
            (test::Names{"home 0 1.5-1.9 52-82 0.4", "usr 0 1.9-2 52-82 0.9"}));
  EXPECT_EQ(nodeAt(diskLayout, -60, 0), nullptr);  // the free space, from 0 up to 1.5π

  // A capacity below the size (capped), none recorded, or not a volume root: the whole circle.
  for (const auto& [capacity, volumeRoot] :
       {std::pair<uint64_t, bool>{100, true}, {0, true}, {1000, false}}) {
    disk->setVolumeCapacity(capacity);
    disk->setVolumeRoot(volumeRoot);
    diskLayout.rebuildSegments();
    EXPECT_EQ(diskLayout.segments()[0].startAngle, 0.0) << capacity;
  }
}

TEST(SunburstLayoutTest, ArcsBelowTheCutOffAndRingsBelowDepthTenAreNeitherDrawnNorRead) {
  // 2π × 621/1e6 = 0.0039019 rad (skipped); 2π × 637/1e6 = 0.0040024 rad (drawn).
  ScanNodeRef root = makeFolderRoot(1'000'000);
  ScanNode* deepest = root.get();
  for (int d = 0; d <= 10; ++d) deepest = addFolder(deepest, "d" + std::to_string(d), 998'742);
  ScanNode* thin = addFolder(root.get(), "thin", 637);
  ScanNode* thinner = addFolder(root.get(), "thinner", 621);
  int loads = 0;
  auto loader = [&loads](ScanNode& node) {
    ++loads;
    ScanNode* child = node.createNode("inside", false);
    child->setSize(node.size());
    return std::vector<ScanNode*>{child};
  };
  thinner->setLazyChildrenLoader(loader);
  deepest->setLazyChildrenLoader(loader);
  const SunburstLayout layout = layoutFor(root);
  const test::Names segments = describe(layout);
  ASSERT_EQ(segments.size(), 12u);
  // Thick rings down to depth 4, thin ones from depth 5 to the last at 10.
  EXPECT_EQ(segments[4], "d4 4 0-1.997 180-210 0.5");
  EXPECT_EQ(segments[5], "d5 5 0-1.997 212-216 0.5");
  EXPECT_EQ(segments[10], "d10 10 0-1.997 242-246 0.5");
  const SunburstSegment& s = layout.segments().back();
  EXPECT_EQ(s.node, thin);
  EXPECT_GE(s.endAngle - s.startAngle, 0.004);
  EXPECT_EQ(loads, 0);
  // The thinner child's arc stays empty up to the full turn: nothing merges into a remainder.
  EXPECT_NEAR(2 * kPi - s.endAngle, 0.0039019, 1e-6);
  EXPECT_EQ(nodeAt(layout, 60, -0.1), nullptr);  // just above three o'clock
}

TEST(SunburstLayoutTest, ZoomingInKeepsAFolderHueForItsSoleSubfolderAndVideoFoldersGetAFixedOne) {
  ScanNodeRef root = makeFolderRoot(10);
  ScanNode* docs = addFolder(root.get(), "docs", 6);
  addFolder(addFolder(docs, "letters", 5), "old", 5);
  addFile(docs, "file", 1);
  ScanNode* movies = addFolder(root.get(), "Movies", 4);
  addFolder(movies, "clips", 4);
  SunburstLayout layout;
  layout.setRootNode(root);
  EXPECT_EQ(layout.rootColor(), sunburst::kAccentTeal);
  EXPECT_DOUBLE_EQ(layout.segmentForNode(docs)->colorPosition, 0.3);

  // The sole sub-folder on the first ring takes the remembered position; deeper ones do not.
  layout.setRootNode(docs->ref());
  EXPECT_EQ(describe(layout), (test::Names{"letters 0 0-1.667 52-82 0.3",
                                           "old 1 0-1.667 84-114 0.5", "file 0 1.667-2 52-82 0"}));
  EXPECT_EQ(layout.rootColor(), sunburst::hueColor(0.3, 0));

  // Back at the root, a video folder is pinned to 0.02 whatever its segment said.
  layout.setRootNode(root);
  layout.setRootNode(movies->ref());
  EXPECT_EQ(describe(layout), test::Names{"clips 0 0-2 52-82 0.02"});

  // Remembered positions die with their tree.
  ScanNodeRef temporary = makeFolderRoot(1, "/tmp-root");
  const ScanNode* gone = temporary.get();
  layout.rememberColorPosition(temporary.get(), 0.4);
  EXPECT_EQ(layout.rememberedColorPosition(gone), 0.4);
  temporary.reset();
  EXPECT_EQ(layout.rememberedColorPosition(gone), std::nullopt);
}

TEST(SunburstColours, HueWheelByPositionAndDepthThenVirtualCloneFolderElseGrey) {
  // Hue, saturation and brightness worked through HSB → RGB by hand: position 0 is hue 0.98,
  // depth 4 is saturation 0.74 and brightness 0.922, depth 10 is bounded at 0.82 and 0.89.
  auto rgba = [](double position, unsigned depth) {
    const SunburstColor c = sunburst::hueColor(position, depth);
    char text[100];
    std::snprintf(text, sizeof text, "%.6g %.6g %.6g %g", c.red, c.green, c.blue, c.alpha);
    return std::string(text);
  };
  EXPECT_EQ(rgba(0, 0), "0.97 0.3492 0.423696 1");
  EXPECT_EQ(rgba(0.5, 4), "0.23972 0.922 0.635442 1");
  EXPECT_EQ(rgba(0, 10), "0.89 0.1602 0.247776 1");
  EXPECT_EQ(sunburst::hueColor(1.25, 2), sunburst::hueColor(0.25, 2));  // positions wrap

  // Virtual first, then clone, then folder (not aggregate), else file grey.
  ScanNodeRef root = makeFolderRoot(10);
  const std::tuple<bool, bool, bool, bool, SunburstColor> kinds[] = {
      {true, false, false, false, sunburst::hueColor(0.25, 3)},
      {false, false, false, false, {0.48, 0.48, 0.48}},
      {true, false, false, true, sunburst::kFileGrey},
      {false, true, false, false, {0.72, 0.2, 0.73}},
      {false, false, true, false, {0.43, 0.68, 0.86}},
      {true, true, true, false, sunburst::kVirtualPurple},
      {true, false, true, false, sunburst::kCloneBlue}};
  for (const auto& [folder, isVirtual, clone, aggregate, colour] : kinds) {
    ScanNode* n = test::addNode(root.get(), "n", folder, 1);
    n->setVirtualNode(isVirtual);
    n->setAPFSClone(clone);
    n->setAggregate(aggregate);
    EXPECT_EQ(sunburst::baseColorForNode(*n, 0.25, 3), colour);
  }
}

using Kind = SunburstTransition::Kind;

// Colour positions of the two drawn folders: 1500/2000 × 0.5, and 0.75 + 499/2000 × 0.5.
constexpr double kFirstHue = 0.375, kSecondHue = 0.87475;

// root 2000: first 1500 over [0, 1.5π], clockwise from three to twelve o'clock (a 999, sub 500
// holding c 500, speck 1), second 499 (inner 499), tiny 1. Speck and tiny are too thin to draw
// around the root (2π / 2000 < 0.004); speck is drawn around "first" (2π / 1500 ≥ 0.004).
struct CountingView : SunburstView {
  void paintEvent(QPaintEvent* event) override {
    ++paints;
    SunburstView::paintEvent(event);
  }
  int paints = 0;
};

class SunburstViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qputenv("TARNWELL_REDUCE_MOTION", "0");
    root_ = makeFolderRoot(2000);
    first_ = addFolder(root_.get(), "first", 1500);
    addFile(first_, "a", 999);
    sub_ = addFolder(first_, "sub", 500);
    c_ = addFile(sub_, "c", 500);
    speck_ = addFile(first_, "speck", 1);
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
    const QColor a = view_.grab().toImage().pixelColor(pointAt(angle, radius));
    EXPECT_LE(std::max({std::abs(a.red() - expected.red()), std::abs(a.green() - expected.green()),
                        std::abs(a.blue() - expected.blue())}),
              2)
        << a.name().toStdString() << " instead of " << expected.name().toStdString();
  }
  // Moves the clock to `seconds` and lets the animations catch up.
  void at(double seconds) {
    clock_ = seconds;
    view_.advanceAnimations();
  }
  // The arc drawn for `node` in the current frame, or null.
  const SunburstDrawnSegment* drawn(const ScanNode* node) {
    frame_ = view_.frameSegments();
    for (const SunburstDrawnSegment& d : frame_)
      if (d.segment->node == node) return &d;
    return nullptr;
  }
  // Expects that arc at these angles, unscaled radii and alpha.
  void expectArc(const ScanNode* node, double start, double end, double inner, double outer,
                 double alpha = 1) {
    const SunburstDrawnSegment* d = drawn(node);
    ASSERT_NE(d, nullptr) << node->name() << " is not drawn";
    const double actual[] = {d->start, d->end, d->inner, d->outer, d->alpha};
    const double expected[] = {start, end, inner, outer, alpha};
    for (int i = 0; i < 5; ++i) EXPECT_NEAR(actual[i], expected[i], 1e-9) << node->name() << i;
  }

  double clock_ = 0;
  ScanNodeRef root_;
  ScanNode *first_ = nullptr, *sub_ = nullptr, *c_ = nullptr, *speck_ = nullptr, *second_ = nullptr,
           *inner_ = nullptr, *tiny_ = nullptr;
  CountingView view_;
  std::vector<SunburstDrawnSegment> frame_;
};

// `color` at `alpha` over the chart's background.
QColor over(const SunburstColor& color, double alpha) {
  const SunburstColor& b = sunburst::kBackground;
  return QColor::fromRgbF(color.red * alpha + b.red * (1 - alpha),
                          color.green * alpha + b.green * (1 - alpha),
                          color.blue * alpha + b.blue * (1 - alpha));
}

TEST_F(SunburstViewTest, PointerReportsEachNewNodeOnceClicksSelectAndTheCentreAsksForTheParent) {
  QSignalSpy hovered(&view_, &SunburstView::didHoverNode);
  // The second move stays on "first"; the last one is in the gap between the rings.
  for (QPoint p : {pointAt(kPi / 2, 67), pointAt(kPi / 2 + 0.2, 70), pointAt(1.7 * kPi, 67),
                   pointAt(1.7 * kPi, 100), pointAt(1.7 * kPi, 83)})
    QTest::mouseMove(&view_, p);
  ASSERT_EQ(hovered.count(), 4);
  const ScanNode* hoveredNodes[] = {first_, second_, inner_, nullptr};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(hovered[i][0].value<ScanNode*>(), hoveredNodes[i]) << i;

  QSignalSpy chosen(&view_, &SunburstView::didChooseNode);
  QSignalSpy parent(&view_, &SunburstView::didRequestParent);
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(1.7 * kPi, 100));
  ASSERT_EQ(chosen.count(), 1);
  EXPECT_EQ(chosen[0][0].value<ScanNode*>(), inner_);
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
  expectPixel(kPi / 2, 67, toQColor(base));
  expectPixel(1.7 * kPi, 100, toQColor(sunburst::kFileGrey));
  // Free of rings: the centre disc away from its label, the ring beyond the file "a".
  expectPixel(0.5, 40, toQColor(sunburst::kBackground));
  expectPixel(kPi / 2, 130, toQColor(sunburst::kBackground));
  // The browser takes the same colours for its title.
  EXPECT_EQ(view_.colorForNode(first_), toQColor(base));
  EXPECT_EQ(view_.colorForNode(root_.get()), std::nullopt);

  QTest::mouseMove(&view_, pointAt(kPi / 2, 67));
  expectPixel(kPi / 2, 67, toQColor(sunburst::blendTowardWhite(base, 0.3)));
  view_.setHoverFlickerBright(false);
  expectPixel(kPi / 2, 67, toQColor(sunburst::blendTowardWhite(base, 0.08)));
  QTest::mouseMove(&view_, QPoint(2, 2));  // leaving the chart drops the highlight
  expectPixel(kPi / 2, 67, toQColor(base));
  view_.setListHoveredNode(first_);
  expectPixel(kPi / 2, 67, toQColor(sunburst::blendTowardWhite(base, 0.34)));
  // The list's hover repaints only when its node changes.
  QTest::qWait(50);
  for (const auto& [node, repaints] : {std::pair{first_, false}, {nullptr, true}}) {
    const int before = view_.paints;
    view_.setListHoveredNode(node);
    QTest::qWait(50);
    EXPECT_EQ(view_.paints > before, repaints);
  }

  // Selecting "second" dims every other segment to 32 %; a hovered dimmed one only lightens.
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(1.7 * kPi, 67));
  expectPixel(kPi / 2, 67, over(base, 0.32));
  expectPixel(1.7 * kPi, 67, toQColor(sunburst::hueColor(kSecondHue, 0)));
  expectPixel(1.7 * kPi, 100, over(sunburst::kFileGrey, 0.32));
  QTest::mouseMove(&view_, pointAt(kPi / 2, 67));
  expectPixel(kPi / 2, 67, over(sunburst::blendTowardWhite(base, 0.3), 0.32));
}

TEST_F(SunburstViewTest, TheCentreDiscKeepsItsTealSizeLabelInsideAndEmptyFoldersShowARing) {
  // On the smallest chart the browser makes, a wide size still stays inside the disc.
  SunburstView small;
  small.resize(320, 320);
  small.setRootNode(makeFolderRoot(999'900'000'000'000'000));  // "999.9 PB" and no rings
  QImage image = small.grab().toImage();
  const double r = SunburstLayout::kCentreRadius * small.chartScale();
  int teal = 0, outside = 0;
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) {
      const QColor c = image.pixelColor(x, y);
      const bool inDisc = std::hypot(x + 0.5 - 160, y + 0.5 - 160) < r;
      teal += inDisc && c.green() > 150 && c.red() < 120;
      outside += !inDisc && c.green() > 80;
    }
  EXPECT_GT(teal, 20);
  EXPECT_EQ(outside, 0);

  // An empty folder: a 2-pixel ring at radius 64 (not scaled), white at 7.5 % over the
  // background, and grey text from 82 pixels under the centre, with nothing above that line.
  view_.setRootNode(makeFolderRoot(0, "/empty"));
  for (double angle : {0.0, 1.5 * kPi})
    expectPixel(angle, 64 / view_.chartScale(), over({1, 1, 1}, 0.075));
  expectPixel(0, 40 / view_.chartScale(), toQColor(sunburst::kBackground));
  image = view_.grab().toImage();
  const int centreY = view_.chartCenter().toPoint().y();
  int textPixels = 0, pixelsAbove = 0;
  for (int y = centreY + 66; y < centreY + 110; ++y)
    for (int x = 0; x < image.width(); ++x)
      if (image.pixelColor(x, y).red() > 60) (y < centreY + 82 ? pixelsAbove : textPixels)++;
  EXPECT_GT(textPixels, 20);
  EXPECT_EQ(pixelsAbove, 0);
}

TEST_F(SunburstViewTest, ZoomInMovesTheSubtreeOntoTheWholeCircleAndZoomOutAnchorsOnTheOldRoot) {
  // sub lies over [0.999π, 1.499π] around the root and over [1.332π, 1.9987π] around "first".
  const double oldStart = 1.5 * kPi * 999 / 1500, oldEnd = 1.5 * kPi * 1499 / 1500;
  const double newStart = 2 * kPi * 999 / 1500, newEnd = 2 * kPi * 1499 / 1500;
  const double secondEnd = 1.5 * kPi + 2 * kPi * 499 / 2000;
  view_.setRootNode(first_->ref(), true);
  // Halfway through the old chart's phase (p = 0.14) the folders outside fade to half while the
  // zoomed subtree stands where it was; speck, too thin for the old chart, is not yet shown.
  view_.setTransitionProgress(0.14);
  expectArc(second_, 1.5 * kPi, secondEnd, 52, 82, 0.5);
  expectArc(sub_, oldStart, oldEnd, 84, 114);
  expectArc(c_, oldStart, oldEnd, 116, 146);
  EXPECT_FALSE(drawn(speck_));
  // Halfway through the new chart's phase (p = 0.64) every arc is halfway to its new place, the
  // anchor halfway to the full circle under the centre disc, and speck grows out of where the
  // zoom maps it into the old chart.
  view_.setTransitionProgress(0.64);
  EXPECT_FALSE(drawn(second_));
  expectArc(sub_, (oldStart + newStart) / 2, (oldEnd + newEnd) / 2, 68, 98);
  expectArc(first_, 0, 1.75 * kPi, 36, 66);
  expectArc(speck_, (oldEnd + newEnd) / 2, 1.75 * kPi, 68, 98, 0.5);
  view_.setTransitionProgress(1);
  expectArc(sub_, newStart, newEnd, 52, 82);
  expectArc(c_, newStart, newEnd, 84, 114);
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

  // Back to the parent: the old root starts as the full circle under the disc, its neighbours
  // not yet shown, and shrinks onto its segment.
  view_.setRootNode(root_, true);
  view_.setTransitionProgress(0);
  expectArc(first_, 0, 2 * kPi, 20, 50);
  expectArc(sub_, newStart, newEnd, 52, 82);
  EXPECT_FALSE(drawn(second_));
  view_.setTransitionProgress(0.64);
  expectArc(first_, 0, 1.75 * kPi, 36, 66);
  expectArc(second_, 1.5 * kPi, secondEnd, 52, 82, 0.5);
}

TEST_F(SunburstViewTest, SweepsRingGrowthAndQuickRootChangesEachFinishOnTheirOwnClock) {
  // Going into a folder that has no segment sweeps the new chart open instead of zooming.
  view_.setRootNode(tiny_->ref(), true);
  at(0.34);
  EXPECT_NEAR(view_.revealProgress(), 0.02 + 0.98 * 0.5, 0.01);
  expectArc(view_.segments().front().node, 0, 2 * kPi * view_.revealProgress(), 52, 82);
  at(0.69);
  EXPECT_EQ(view_.revealProgress(), 1);
  EXPECT_FALSE(view_.isAnimating());

  // A second root change keeps its zoom when the first one would have ended.
  clock_ = 1;
  view_.setRootNode(root_, false);
  view_.setRootNode(first_->ref(), true);
  at(1.3);
  view_.setRootNode(root_, true);
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
  expectArc(first_, 0, 1.5 * kPi, 50, 50, 0);
  view_.animateInitialRevealFromCenter();
  at(2.35);
  EXPECT_NEAR(view_.radialRevealProgress(), 0.684, 0.01);
  const double r = view_.radialRevealProgress();
  expectArc(first_, 0, 1.5 * kPi, 50 + 2 * r, 50 + 32 * r, r);
  view_.setRootNode(second_->ref(), false);
  EXPECT_EQ(view_.radialRevealProgress(), 1);
  EXPECT_FALSE(view_.isAnimating());
  // An empty root has nothing to grow.
  view_.setRootNode(makeFolderRoot(0), false);
  view_.prepareInitialRevealFromCenter();
  EXPECT_EQ(view_.radialRevealProgress(), 1);
}

TEST_F(SunburstViewTest, HoverPreviewsAfterASecondOnOneSegmentAndReducedMotionOnlyStopsMotion) {
  QSignalSpy previewed(&view_, &SunburstView::didPreviewNode);
  QTest::mouseMove(&view_, pointAt(0.5 * kPi, 67));  // first
  EXPECT_TRUE(view_.isHoverFlickering());
  QTest::qWait(300);
  QTest::mouseMove(&view_, pointAt(1.6 * kPi, 67));  // second, within the first's second
  ASSERT_TRUE(previewed.wait(3000));
  QTest::qWait(200);
  ASSERT_EQ(previewed.count(), 1);
  EXPECT_EQ(previewed[0][0].value<ScanNode*>(), second_);
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
  QTest::mouseMove(&view_, pointAt(0.5, 67));  // first
  EXPECT_FALSE(view_.isHoverFlickering());
  ASSERT_TRUE(previewed.wait(3000));
  EXPECT_EQ(previewed.last()[0].value<ScanNode*>(), first_);
}

}  // namespace
}  // namespace tw
