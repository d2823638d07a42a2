// Layout of the sunburst chart: rings, angles, cut-offs, colour positions and hit-testing, checked
// against figures worked out by hand.
#include "browser/sunburst_layout.h"

#include <gtest/gtest.h>

#include <numbers>

#include "browser/sunburst_angles.h"
#include "browser/sunburst_colors.h"
#include "support/scan_trees.h"

namespace tw {
namespace {

using test::addFile;
using test::addFolder;
using test::makeFolderRoot;

constexpr double kPi = std::numbers::pi;

SunburstLayout layoutFor(ScanNodeRef root, std::optional<double> rememberedPosition = {}) {
  SunburstLayout layout;
  if (rememberedPosition) layout.rememberColorPosition(root.get(), *rememberedPosition);
  layout.setRootNode(std::move(root));
  return layout;
}

// The segment hit at chart angle `angle` and unscaled radius `radius` at scale 1, or null.
const ScanNode* nodeAt(const SunburstLayout& layout, double angle, double radius) {
  const SunburstSegment* s = layout.segmentAtOffset(sunburst::offsetXAt(angle, radius),
                                                    sunburst::offsetYAt(angle, radius), 1);
  return s ? s->node : nullptr;
}

TEST(SunburstGeometry, RingsAreThickThenThinAndTheChartFillsTheShorterSideUpToItsDesignSize) {
  const double rings[11][2] = {{52, 82},   {84, 114},  {116, 146}, {148, 178},
                               {180, 210}, {212, 216}, {218, 222}, {224, 228},
                               {230, 234}, {236, 240}, {242, 246}};
  for (unsigned d = 0; d <= 10; ++d) {
    EXPECT_EQ(SunburstLayout::ringForDepth(d).innerRadius, rings[d][0]) << d;
    EXPECT_EQ(SunburstLayout::ringForDepth(d).outerRadius, rings[d][1]) << d;
  }
  EXPECT_EQ(SunburstLayout::scaleForSize(1000, 1000), 1.0);
  EXPECT_EQ(SunburstLayout::scaleForSize(526.1, 2000), 1.0);
  EXPECT_NEAR(SunburstLayout::scaleForSize(600, 400), 400 * 0.46 / 242, 1e-12);
  EXPECT_NEAR(SunburstLayout::scaleForSize(121, 900), 0.23, 1e-12);
}

TEST(SunburstLayoutTest, ChildrenShareTheirParentsArcInStoredOrderAndFoldersSpreadOverTheWheel) {
  // 12: d6 (a1 4, a2 2 (f 2)), f3 3, d2 2, "smaller objects…" 1.
  ScanNodeRef root = makeFolderRoot(12);
  ScanNode* d6 = addFolder(root.get(), "d6", 6);
  addFolder(d6, "a1", 4);
  addFile(addFolder(d6, "a2", 2), "f", 2);
  addFile(root.get(), "f3", 3);
  addFolder(root.get(), "d2", 2);
  addFolder(root.get(), kSmallerObjectsName, 1)->setAggregate(true);
  // Two sub-folders: the midpoints of their size shares win over a remembered position; files
  // and groups take 0, and a folder's position counts its siblings only.
  const SunburstLayout layout = layoutFor(root, 0.61);
  struct Expected {
    std::string_view name;
    unsigned depth;
    double start, end, inner, position;
  } const expected[] = {{"d6", 0, 0, kPi, 52, 0.375},
                        {"a1", 1, 0, 2 * kPi / 3, 84, 1.0 / 3},
                        {"a2", 1, 2 * kPi / 3, kPi, 84, 5.0 / 6},
                        {"f", 2, 2 * kPi / 3, kPi, 116, 0},
                        {"f3", 0, kPi, 1.5 * kPi, 52, 0},
                        {"d2", 0, 1.5 * kPi, 11 * kPi / 6, 52, 0.875},
                        {kSmallerObjectsName, 0, 11 * kPi / 6, 2 * kPi, 52, 0}};
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), std::size(expected));
  for (size_t i = 0; i < s.size(); ++i) {
    const Expected& e = expected[i];
    EXPECT_EQ(s[i].node->name(), e.name);
    EXPECT_EQ(s[i].depth, e.depth) << e.name;
    EXPECT_NEAR(s[i].startAngle, e.start, 1e-12) << e.name;
    EXPECT_NEAR(s[i].endAngle, e.end, 1e-12) << e.name;
    EXPECT_EQ(s[i].innerRadius, e.inner) << e.name;
    EXPECT_EQ(s[i].outerRadius, e.inner + 30) << e.name;
    EXPECT_NEAR(s[i].colorPosition, e.position, 1e-12) << e.name;
  }
  // No size, no root, or children that weigh nothing: no segments.
  ScanNodeRef weightless = makeFolderRoot(5);
  addFile(weightless.get(), "zero", 0);
  for (const ScanNodeRef& empty : {makeFolderRoot(0), ScanNodeRef(), weightless})
    EXPECT_TRUE(layoutFor(empty).segments().empty());
}

TEST(SunburstLayoutTest, VolumeRootFillsOnlyItsUsedShare) {
  ScanNodeRef root = ScanNode::makeRoot("/", true);
  root->setSize(250);
  root->setVolumeRoot(true);
  root->setVolumeCapacity(1000);
  addFolder(root.get(), "home", 200);
  addFolder(root.get(), "usr", 50);
  SunburstLayout layout = layoutFor(root);
  ASSERT_EQ(layout.segments().size(), 2u);
  EXPECT_DOUBLE_EQ(layout.segments()[0].startAngle, 1.5 * kPi);
  EXPECT_DOUBLE_EQ(layout.segments()[0].endAngle, 1.5 * kPi + 0.5 * kPi * 0.8);
  EXPECT_DOUBLE_EQ(layout.segments()[1].endAngle, 2 * kPi);
  // The free space from 0 up to 1.5π hits nothing.
  EXPECT_EQ(nodeAt(layout, kPi, 60), nullptr);

  // A capacity below the size (capped), none recorded, or not a volume root: the whole circle.
  for (const auto& [capacity, volumeRoot] :
       {std::pair<uint64_t, bool>{100, true}, {0, true}, {1000, false}}) {
    root->setVolumeCapacity(capacity);
    root->setVolumeRoot(volumeRoot);
    layout.rebuildSegments();
    EXPECT_EQ(layout.segments()[0].startAngle, 0.0) << capacity;
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
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), 12u);
  EXPECT_EQ(s[10].node, deepest);
  EXPECT_EQ(s[10].depth, 10u);
  EXPECT_EQ(s[10].innerRadius, 242);
  EXPECT_EQ(s[10].outerRadius, 246);
  EXPECT_EQ(s[11].node, thin);
  EXPECT_GE(s[11].endAngle - s[11].startAngle, 0.004);
  EXPECT_EQ(loads, 0);
  // The thinner child's arc stays empty up to the full turn: nothing merges into a remainder.
  EXPECT_NEAR(2 * kPi - s[11].endAngle, 0.0039019, 1e-6);
  EXPECT_EQ(nodeAt(layout, 2 * kPi - 0.002, 60), nullptr);
  EXPECT_EQ(layout.segmentForNode(thinner), nullptr);
}

TEST(SunburstLayoutTest, ZoomingInKeepsAFolderHueForItsSoleSubfolderAndVideoFoldersGetAFixedOne) {
  ScanNodeRef root = makeFolderRoot(10);
  ScanNode* docs = addFolder(root.get(), "docs", 6);
  ScanNode* letters = addFolder(docs, "letters", 5);
  ScanNode* old = addFolder(letters, "old", 5);
  ScanNode* file = addFile(docs, "file", 1);
  ScanNode* movies = addFolder(root.get(), "Movies", 4);
  addFolder(movies, "clips", 4);
  SunburstLayout layout;
  layout.setRootNode(root);
  EXPECT_EQ(layout.rootColor(), sunburst::kAccentTeal);
  const double docsPosition = layout.segmentForNode(docs)->colorPosition;
  EXPECT_DOUBLE_EQ(docsPosition, 0.3);

  // The sole sub-folder on the first ring takes the remembered position; deeper ones do not.
  layout.setRootNode(docs->ref());
  EXPECT_EQ(layout.rememberedColorPosition(docs), docsPosition);
  EXPECT_EQ(layout.segmentForNode(letters)->colorPosition, docsPosition);
  EXPECT_DOUBLE_EQ(layout.segmentForNode(old)->colorPosition, 0.5);
  EXPECT_EQ(layout.segmentForNode(file)->colorPosition, 0.0);
  EXPECT_EQ(layout.rootColor(), sunburst::hueColor(docsPosition, 0));

  // Back at the root, a video folder is pinned to 0.02 whatever its segment said.
  layout.setRootNode(root);
  layout.setRootNode(movies->ref());
  EXPECT_EQ(layout.rememberedColorPosition(movies), 0.02);
  EXPECT_EQ(layout.segments()[0].colorPosition, 0.02);

  // Remembered positions die with their tree.
  const ScanNode* gone = nullptr;
  {
    ScanNodeRef temporary = makeFolderRoot(1, "/tmp-root");
    layout.rememberColorPosition(temporary.get(), 0.4);
    gone = temporary.get();
    EXPECT_EQ(layout.rememberedColorPosition(gone), 0.4);
  }
  EXPECT_EQ(layout.rememberedColorPosition(gone), std::nullopt);
}

TEST(SunburstColours, HueWheelByPositionAndDepthThenVirtualCloneFolderElseGrey) {
  // Hue, saturation and brightness worked through HSB → RGB by hand: position 0 is hue 0.98,
  // depth 4 is saturation 0.74 and brightness 0.922, depth 10 is bounded at 0.82 and 0.89.
  const struct {
    double position;
    unsigned depth;
    SunburstColor rgb;
  } hues[] = {{0, 0, {0.97, 0.3492, 0.423696}},
              {0.5, 4, {0.23972, 0.922, 0.6354424}},
              {0, 10, {0.89, 0.1602, 0.247776}}};
  for (const auto& [position, depth, rgb] : hues) {
    const SunburstColor c = sunburst::hueColor(position, depth);
    EXPECT_NEAR(c.red, rgb.red, 1e-9) << position << " " << depth;
    EXPECT_NEAR(c.green, rgb.green, 1e-9) << position << " " << depth;
    EXPECT_NEAR(c.blue, rgb.blue, 1e-9) << position << " " << depth;
    EXPECT_EQ(c.alpha, 1.0);
  }
  EXPECT_EQ(sunburst::hueColor(1.25, 2), sunburst::hueColor(0.25, 2));  // positions wrap

  ScanNodeRef root = makeFolderRoot(10);
  auto node = [&](const char* name, bool folder, bool isVirtual, bool clone, bool aggregate) {
    ScanNode* n = folder ? addFolder(root.get(), name, 1) : addFile(root.get(), name, 1);
    n->setVirtualNode(isVirtual);
    n->setAPFSClone(clone);
    n->setAggregate(aggregate);
    return n;
  };
  const std::pair<ScanNode*, SunburstColor> cases[] = {
      {node("folder", true, false, false, false), sunburst::hueColor(0.25, 3)},
      {node("file", false, false, false, false), {0.48, 0.48, 0.48}},
      {node("smaller", true, false, false, true), sunburst::kFileGrey},
      {node("hidden space", false, true, false, false), {0.72, 0.2, 0.73}},
      {node("clone", false, false, true, false), {0.43, 0.68, 0.86}},
      {node("virtual clone", true, true, true, false), sunburst::kVirtualPurple},
      {node("cloned folder", true, false, true, false), sunburst::kCloneBlue}};
  for (const auto& [n, colour] : cases)
    EXPECT_EQ(sunburst::baseColorForNode(*n, 0.25, 3), colour) << n->name();
  const SunburstLayout layout = layoutFor(root);
  EXPECT_EQ(layout.colorForNode(cases[3].first), sunburst::kVirtualPurple);
  EXPECT_EQ(layout.colorForNode(root.get()), std::nullopt);
}

TEST(SunburstHitTesting, AnglesRunClockwiseFromThreeOClockAndBoundariesBelongToTheLaterSegment) {
  // "first" covers [0, π], the lower half of the screen; "second" the upper half.
  ScanNodeRef root = makeFolderRoot(2);
  ScanNode* first = addFolder(root.get(), "first", 1);
  ScanNode* second = addFolder(root.get(), "second", 1);
  ScanNode* inner = addFile(second, "inner", 1);
  const SunburstLayout layout = layoutFor(root);
  ASSERT_EQ(layout.segments()[0].endAngle, kPi);
  // Offsets (dx, dy) in pixels, y down, at scale 1 unless given.
  const struct {
    double dx, dy, scale;
    const ScanNode* hit;
  } cases[] = {{60, 0, 1, first},    // three o'clock: angle 0, the start of "first"
               {0, 60, 1, first},    // six o'clock: π/2
               {-60, 0, 1, second},  // nine o'clock: π, the end of "first" and start of "second"
               {0, -60, 1, second},  // twelve o'clock: 1.5π
               {60, -1e-9, 1, second},    // just short of a full turn
               {0, -52, 1, second},       // radii are inclusive at both edges
               {0, -82, 1, second},       //
               {0, -83, 1, nullptr},      // the gap between two rings
               {0, -84, 1, inner},        //
               {0, -51.9, 1, nullptr},    // inside the centre disc
               {0, -114.1, 1, nullptr},   // beyond the deepest ring
               {0, 100, 1, nullptr},      // "first" has no children
               {0, -41, 0.5, second},     // at half size ring 0 spans 26 to 41 pixels
               {0, -41.5, 0.5, nullptr},  //
               {0, 26, 0.5, first},       //
               {0, 25.9, 0.5, nullptr}};
  for (const auto& c : cases) {
    const SunburstSegment* s = layout.segmentAtOffset(c.dx, c.dy, c.scale);
    EXPECT_EQ(s ? s->node : nullptr, c.hit) << c.dx << ", " << c.dy << " at " << c.scale;
  }
  EXPECT_LT(sunburst::angleOfOffset(10, -1e-9), 2 * kPi);
  EXPECT_TRUE(SunburstLayout::isInCentreDisc(0, 24.9, 0.5));
  EXPECT_FALSE(SunburstLayout::isInCentreDisc(0, 25, 0.5));
  // Qt counts degrees counter-clockwise from three o'clock, so six o'clock is −90°.
  EXPECT_NEAR(sunburst::qtDegreesForAngle(0), 0, 1e-12);
  EXPECT_NEAR(sunburst::qtDegreesForAngle(kPi / 2), -90, 1e-12);
  EXPECT_NEAR(sunburst::qtSweepDegrees(0, kPi / 2), -90, 1e-12);
}

}  // namespace
}  // namespace tw
