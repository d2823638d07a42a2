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

SunburstLayout layoutFor(ScanNodeRef root) {
  SunburstLayout layout;
  layout.setRootNode(std::move(root));
  return layout;
}

// The offset from the centre of the point at chart angle `angle` and unscaled radius `radius`.
std::pair<double, double> at(double angle, double radius, double scale = 1) {
  return {sunburst::offsetXAt(angle, radius * scale), sunburst::offsetYAt(angle, radius * scale)};
}

TEST(SunburstGeometry, RingsAreThickThenThinWithTwoUnitGaps) {
  const double expected[11][2] = {{52, 82},   {84, 114},  {116, 146}, {148, 178},
                                  {180, 210}, {212, 216}, {218, 222}, {224, 228},
                                  {230, 234}, {236, 240}, {242, 246}};
  for (unsigned d = 0; d <= 10; ++d) {
    EXPECT_EQ(SunburstLayout::ringForDepth(d).innerRadius, expected[d][0]) << d;
    EXPECT_EQ(SunburstLayout::ringForDepth(d).outerRadius, expected[d][1]) << d;
  }
}

TEST(SunburstGeometry, ScaleFollowsShorterSideAndNeverExceedsOne) {
  EXPECT_EQ(SunburstLayout::scaleForSize(1000, 1000), 1.0);
  EXPECT_EQ(SunburstLayout::scaleForSize(526.1, 2000), 1.0);
  EXPECT_NEAR(SunburstLayout::scaleForSize(600, 400), 400 * 0.46 / 242, 1e-12);  // 0.760331
  EXPECT_NEAR(SunburstLayout::scaleForSize(121, 900), 0.23, 1e-12);
}

TEST(SunburstLayoutTest, ChildrenShareTheCircleInStoredOrder) {
  ScanNodeRef root = makeFolderRoot(4);
  addFolder(root.get(), "big", 3);
  addFolder(root.get(), "small", 1);
  SunburstLayout layout;
  // With two sub-folders the midpoints of the shares win over a remembered position.
  layout.rememberColorPosition(root.get(), 0.61);
  layout.setRootNode(root);
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), 2u);
  EXPECT_EQ(s[0].node->name(), "big");
  EXPECT_EQ(s[0].startAngle, 0.0);
  EXPECT_DOUBLE_EQ(s[0].endAngle, 1.5 * kPi);
  EXPECT_DOUBLE_EQ(s[1].startAngle, 1.5 * kPi);
  EXPECT_DOUBLE_EQ(s[1].endAngle, 2 * kPi);
  for (const SunburstSegment& seg : s) {
    EXPECT_EQ(seg.depth, 0u);
    EXPECT_EQ(seg.innerRadius, 52);
    EXPECT_EQ(seg.outerRadius, 82);
  }
  // Midpoints of the cumulative size shares: 3/4 × 0.5 and 3/4 + 1/4 × 0.5.
  EXPECT_DOUBLE_EQ(s[0].colorPosition, 0.375);
  EXPECT_DOUBLE_EQ(s[1].colorPosition, 0.875);
}

TEST(SunburstLayoutTest, DescendantsFollowTheirParentWithinItsArc) {
  ScanNodeRef root = makeFolderRoot(8);
  ScanNode* a = addFolder(root.get(), "a", 6);
  addFolder(a, "a1", 4);
  ScanNode* a2 = addFolder(a, "a2", 2);
  addFile(a2, "f", 2);
  addFile(root.get(), "b", 2);
  const SunburstLayout layout = layoutFor(root);
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), 5u);
  const char* order[] = {"a", "a1", "a2", "f", "b"};
  const unsigned depths[] = {0, 1, 1, 2, 0};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(s[i].node->name(), order[i]);
    EXPECT_EQ(s[i].depth, depths[i]);
  }
  // a covers [0, 1.5π]; a1 takes 4/6 of it, a2 the rest; f fills a2's arc on ring 2.
  EXPECT_DOUBLE_EQ(s[1].endAngle, 1.5 * kPi * 4 / 6);
  EXPECT_DOUBLE_EQ(s[2].startAngle, s[1].endAngle);
  EXPECT_DOUBLE_EQ(s[2].endAngle, 1.5 * kPi);
  EXPECT_EQ(s[3].startAngle, s[2].startAngle);
  EXPECT_EQ(s[3].endAngle, s[2].endAngle);
  EXPECT_EQ(s[1].innerRadius, 84);
  EXPECT_EQ(s[3].innerRadius, 116);
  EXPECT_EQ(s[3].outerRadius, 146);
  // Positions are set among siblings only: a is the only folder of the root (0.5), a1 and a2
  // split their parent's folders 4:2, and the file gets 0.
  EXPECT_DOUBLE_EQ(s[0].colorPosition, 0.5);
  EXPECT_DOUBLE_EQ(s[1].colorPosition, 1.0 / 3);
  EXPECT_DOUBLE_EQ(s[2].colorPosition, 2.0 / 3 + 1.0 / 6);
  EXPECT_EQ(s[3].colorPosition, 0.0);
  EXPECT_EQ(s[4].colorPosition, 0.0);
}

TEST(SunburstLayoutTest, ColourPositionsCountOnlyFoldersThatAreNotAggregates) {
  ScanNodeRef root = makeFolderRoot(12);
  addFolder(root.get(), "d6", 6);
  addFile(root.get(), "f3", 3);
  addFolder(root.get(), "d2", 2);
  ScanNode* smaller = addFolder(root.get(), "smaller objects\u2026", 1);
  smaller->setAggregate(true);
  const SunburstLayout layout = layoutFor(root);
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), 4u);
  EXPECT_DOUBLE_EQ(s[0].colorPosition, 0.375);  // 6/8 × 0.5
  EXPECT_EQ(s[1].colorPosition, 0.0);
  EXPECT_DOUBLE_EQ(s[2].colorPosition, 0.875);  // 6/8 + 2/8 × 0.5
  EXPECT_EQ(s[3].colorPosition, 0.0);
  // Angles still follow all children: 6, 3, 2 and 1 twelfths.
  EXPECT_DOUBLE_EQ(s[1].startAngle, kPi);
  EXPECT_DOUBLE_EQ(s[2].startAngle, 1.5 * kPi);
  EXPECT_DOUBLE_EQ(s[3].startAngle, 2 * kPi * 11 / 12);
}

TEST(SunburstLayoutTest, EmptyFoldersYieldNoSegments) {
  EXPECT_TRUE(layoutFor(makeFolderRoot(0)).segments().empty());
  EXPECT_TRUE(layoutFor(nullptr).segments().empty());
  // A root with a size but children that all weigh nothing.
  ScanNodeRef root = makeFolderRoot(5);
  addFile(root.get(), "zero", 0);
  EXPECT_TRUE(layoutFor(root).segments().empty());
  // A folder with no children ends its branch.
  ScanNodeRef other = makeFolderRoot(5);
  addFolder(other.get(), "leaf", 5);
  EXPECT_EQ(layoutFor(other).segments().size(), 1u);
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
  auto [x, y] = at(kPi, 60);
  EXPECT_EQ(layout.segmentAtOffset(x, y, 1), nullptr);

  // A capacity below the size (capped), none recorded, or not a volume root: the whole circle.
  for (const auto& [capacity, volumeRoot] :
       {std::pair<uint64_t, bool>{100, true}, {0, true}, {1000, false}}) {
    root->setVolumeCapacity(capacity);
    root->setVolumeRoot(volumeRoot);
    layout.rebuildSegments();
    EXPECT_EQ(layout.segments()[0].startAngle, 0.0) << capacity;
  }
}

TEST(SunburstLayoutTest, ArcsThinnerThanCutOffLeaveAGapAndAreNotRead) {
  // 2π × 621/1e6 = 0.0039019 rad (skipped); 2π × 637/1e6 = 0.0040024 rad (drawn).
  ScanNodeRef root = makeFolderRoot(1'000'000);
  addFolder(root.get(), "big", 1'000'000 - 621 - 637);
  ScanNode* thin = addFolder(root.get(), "thin", 637);
  ScanNode* thinner = addFolder(root.get(), "thinner", 621);
  int thinnerLoads = 0;
  thinner->setLazyChildrenLoader([&](ScanNode& node) {
    ++thinnerLoads;
    ScanNode* child = node.createNode("inside", false);
    child->setSize(621);
    return std::vector<ScanNode*>{child};
  });
  const SunburstLayout layout = layoutFor(root);
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), 2u);
  EXPECT_EQ(s[1].node, thin);
  EXPECT_GE(s[1].endAngle - s[1].startAngle, 0.004);
  EXPECT_EQ(thinnerLoads, 0);
  // The thinner child's arc stays empty up to the full turn.
  EXPECT_NEAR(2 * kPi - s[1].endAngle, 0.0039019, 1e-6);
  auto [x, y] = at(2 * kPi - 0.002, 60);
  EXPECT_EQ(layout.segmentAtOffset(x, y, 1), nullptr);
  EXPECT_EQ(layout.segmentForNode(thinner), nullptr);
}

TEST(SunburstLayoutTest, DepthTenIsTheDeepestRingAndBelowItNothingIsLoaded) {
  ScanNodeRef root = makeFolderRoot(100);
  ScanNode* parent = root.get();
  for (int d = 0; d <= 10; ++d) parent = addFolder(parent, "d" + std::to_string(d), 100);
  int deeperLoads = 0;
  parent->setLazyChildrenLoader([&](ScanNode& node) {
    ++deeperLoads;
    ScanNode* child = node.createNode("d11", false);
    child->setSize(100);
    return std::vector<ScanNode*>{child};
  });
  const SunburstLayout layout = layoutFor(root);
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), 11u);
  EXPECT_EQ(s.back().depth, 10u);
  EXPECT_EQ(s.back().node, parent);
  EXPECT_EQ(s.back().innerRadius, 242);
  EXPECT_EQ(s.back().outerRadius, 246);
  EXPECT_EQ(deeperLoads, 0);
}

TEST(SunburstLayoutTest, AHundredThousandTinyChildrenLeaveOnlyTheirGap) {
  ScanNodeRef root = makeFolderRoot(200'000);
  addFolder(root.get(), "big", 100'000);
  for (int i = 0; i < 100'000; ++i) addFile(root.get(), "f" + std::to_string(i), 1);
  const SunburstLayout layout = layoutFor(root);
  ASSERT_EQ(layout.segments().size(), 1u);
  EXPECT_DOUBLE_EQ(layout.segments()[0].endAngle, kPi);
  EXPECT_EQ(layout.segmentAtOffset(0, 60, 1)->node->name(), "big");  // π is its end
  EXPECT_EQ(layout.segmentAtOffset(-60, 0, 1), nullptr);
}

TEST(SunburstLayoutTest, RememberedPositionAppliesToASoleSubfolderAtTheFirstRingOnly) {
  ScanNodeRef root = makeFolderRoot(10);
  ScanNode* only = addFolder(root.get(), "only", 6);
  addFolder(only, "inner", 5);
  addFile(only, "file", 1);
  addFile(root.get(), "file", 4);
  SunburstLayout layout;
  layout.rememberColorPosition(root.get(), 0.61);
  layout.setRootNode(root);
  const auto& s = layout.segments();
  ASSERT_EQ(s.size(), 4u);
  EXPECT_EQ(s[0].node, only);
  EXPECT_EQ(s[0].colorPosition, 0.61);
  EXPECT_DOUBLE_EQ(s[1].colorPosition, 0.5);  // a sole sub-folder deeper down: its midpoint
  EXPECT_EQ(s[3].colorPosition, 0.0);
}

TEST(SunburstLayoutTest, ZoomingInKeepsTheFolderColourAndVideoFoldersGetAFixedOne) {
  ScanNodeRef root = makeFolderRoot(10);
  ScanNode* docs = addFolder(root.get(), "docs", 6);
  addFolder(docs, "letters", 6);
  ScanNode* movies = addFolder(root.get(), "Movies", 4);
  addFolder(movies, "clips", 4);
  SunburstLayout layout;
  layout.setRootNode(root);
  EXPECT_EQ(layout.rootColor(), sunburst::kAccentTeal);
  const double docsPosition = layout.segmentForNode(docs)->colorPosition;  // 0.3
  EXPECT_DOUBLE_EQ(docsPosition, 0.3);

  layout.setRootNode(docs->ref());
  EXPECT_EQ(layout.rememberedColorPosition(docs), docsPosition);
  EXPECT_EQ(layout.segments()[0].colorPosition, docsPosition);  // the sole sub-folder
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

TEST(SunburstColours, HueWheelSaturationAndBrightnessByDepth) {
  // Position 0, depth 0: hue 0.98, saturation 0.64, brightness 0.97 → (0.97, 0.3492, 0.423696).
  const SunburstColor c0 = sunburst::hueColor(0, 0);
  EXPECT_NEAR(c0.red, 0.97, 1e-9);
  EXPECT_NEAR(c0.green, 0.3492, 1e-9);
  EXPECT_NEAR(c0.blue, 0.423696, 1e-9);
  EXPECT_EQ(c0.alpha, 1.0);
  // Position 0.5, depth 4: hue 0.43, saturation 0.74, brightness 0.922 → a green-cyan:
  // sector 2 (hue × 6 = 2.58), p = 0.23972, t = 0.922 × (1 − 0.74 × 0.42) = 0.6354424.
  const SunburstColor c4 = sunburst::hueColor(0.5, 4);
  EXPECT_NEAR(c4.red, 0.23972, 1e-9);
  EXPECT_NEAR(c4.green, 0.922, 1e-9);
  EXPECT_NEAR(c4.blue, 0.6354424, 1e-9);
  // Deep rings are bounded: saturation 0.82 and brightness 0.89 from depth 8 and 7 on.
  const SunburstColor c10 = sunburst::hueColor(0, 10);
  EXPECT_NEAR(c10.red, 0.89, 1e-9);
  EXPECT_NEAR(c10.green, 0.89 * 0.18, 1e-9);
  // Positions wrap: 1.25 is 0.25.
  EXPECT_EQ(sunburst::hueColor(1.25, 2), sunburst::hueColor(0.25, 2));
}

TEST(SunburstColours, VirtualThenCloneThenFolderElseGrey) {
  ScanNodeRef root = makeFolderRoot(10);
  ScanNode* folder = addFolder(root.get(), "folder", 1);
  ScanNode* file = addFile(root.get(), "file", 1);
  ScanNode* smaller = addFolder(root.get(), "smaller objects\u2026", 1);
  smaller->setAggregate(true);
  ScanNode* hidden = addFile(root.get(), "hidden space\u2026", 1);
  hidden->setVirtualNode(true);
  ScanNode* clone = addFile(root.get(), "clone", 1);
  clone->setAPFSClone(true);
  ScanNode* virtualClone = addFolder(root.get(), "odd", 1);
  virtualClone->setVirtualNode(true);
  virtualClone->setAPFSClone(true);
  ScanNode* cloneFolder = addFolder(root.get(), "cloned folder", 1);
  cloneFolder->setAPFSClone(true);
  using sunburst::baseColorForNode;
  EXPECT_EQ(baseColorForNode(*folder, 0.25, 3), sunburst::hueColor(0.25, 3));
  EXPECT_EQ(baseColorForNode(*file, 0.25, 3), (SunburstColor{0.48, 0.48, 0.48}));
  EXPECT_EQ(baseColorForNode(*smaller, 0.25, 3), sunburst::kFileGrey);
  EXPECT_EQ(baseColorForNode(*hidden, 0, 0), (SunburstColor{0.72, 0.2, 0.73}));
  EXPECT_EQ(baseColorForNode(*clone, 0, 0), (SunburstColor{0.43, 0.68, 0.86}));
  EXPECT_EQ(baseColorForNode(*virtualClone, 0, 0), sunburst::kVirtualPurple);
  EXPECT_EQ(baseColorForNode(*cloneFolder, 0, 0), sunburst::kCloneBlue);

  const SunburstLayout layout = layoutFor(root);
  EXPECT_EQ(layout.colorForNode(hidden), sunburst::kVirtualPurple);
  EXPECT_EQ(layout.colorForNode(root.get()), std::nullopt);
}

TEST(SunburstHitTesting, AnglesRunClockwiseFromTwelveAndBoundariesBelongToTheLaterSegment) {
  ScanNodeRef root = makeFolderRoot(2);
  ScanNode* first = addFolder(root.get(), "first", 1);
  ScanNode* second = addFolder(root.get(), "second", 1);
  addFile(second, "inner", 1);
  const SunburstLayout layout = layoutFor(root);
  ASSERT_EQ(layout.segments()[0].endAngle, kPi);
  // Straight down is angle π, the end of "first" and the start of "second".
  EXPECT_EQ(layout.segmentAtOffset(0, 60, 1)->node, second);
  // Straight up is angle 0, the start of "first".
  EXPECT_EQ(layout.segmentAtOffset(0, -60, 1)->node, first);
  EXPECT_EQ(layout.segmentAtOffset(60, 0, 1)->node, first);
  EXPECT_EQ(layout.segmentAtOffset(-60, 0, 1)->node, second);
  EXPECT_EQ(layout.segmentAtOffset(-1e-9, -60, 1)->node, second);  // just short of a full turn
  EXPECT_LT(sunburst::angleOfOffset(-1e-9, -10), 2 * kPi);
  // Radii are inclusive at both edges; the gaps between rings hit nothing.
  EXPECT_EQ(layout.segmentAtOffset(-52, 0, 1)->node, second);
  EXPECT_EQ(layout.segmentAtOffset(-82, 0, 1)->node, second);
  EXPECT_EQ(layout.segmentAtOffset(-83, 0, 1), nullptr);
  EXPECT_EQ(layout.segmentAtOffset(-84, 0, 1)->node->name(), "inner");
  EXPECT_EQ(layout.segmentAtOffset(-51.9, 0, 1), nullptr);
  EXPECT_EQ(layout.segmentAtOffset(-114.1, 0, 1), nullptr);
  // The inner ring of "first" is empty (it has no children).
  EXPECT_EQ(layout.segmentAtOffset(100, 0, 1), nullptr);
  // Radii scale with the view: at half size ring 0 spans 26 to 41 pixels, the disc is below 25.
  EXPECT_EQ(layout.segmentAtOffset(0, 41, 0.5)->node, second);
  EXPECT_EQ(layout.segmentAtOffset(0, 41.5, 0.5), nullptr);
  EXPECT_EQ(layout.segmentAtOffset(0, -26, 0.5)->node, first);
  EXPECT_EQ(layout.segmentAtOffset(0, -25.9, 0.5), nullptr);
  EXPECT_TRUE(SunburstLayout::isInCentreDisc(0, 24.9, 0.5));
  EXPECT_FALSE(SunburstLayout::isInCentreDisc(0, 25, 0.5));
  // Qt: 90° is twelve o'clock, 0° three o'clock; a clockwise sweep is negative.
  EXPECT_NEAR(sunburst::qtDegreesForAngle(0), 90, 1e-12);
  EXPECT_NEAR(sunburst::qtDegreesForAngle(kPi / 2), 0, 1e-12);
  EXPECT_NEAR(sunburst::qtSweepDegrees(0, kPi / 2), -90, 1e-12);
}

}  // namespace
}  // namespace tw
