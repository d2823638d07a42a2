// The sunburst widget under real pointer events and its painted pixels.
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

constexpr double kPi = std::numbers::pi;

// Two folders sharing the circle ("left" [0, π] and "right" [π, 2π] in chart angles, so the first
// lies on the right half of the screen), the second with one file inside.
class SunburstViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = makeFolderRoot(2);
    first_ = addFolder(root_.get(), "first", 1);
    second_ = addFolder(root_.get(), "second", 1);
    inner_ = addFile(second_, "inner", 1);
    view_.resize(400, 400);
    view_.setRootNode(root_);
    view_.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view_));
  }

  QPoint pointAt(double angle, double radius) const { return test::pointAt(view_, angle, radius); }
  QColor pixelAt(double angle, double radius) {
    return view_.grab().toImage().pixelColor(pointAt(angle, radius));
  }

  ScanNodeRef root_;
  ScanNode* first_ = nullptr;
  ScanNode* second_ = nullptr;
  ScanNode* inner_ = nullptr;
  SunburstView view_;
};

void expectColorNear(const QColor& actual, const QColor& expected, int tolerance = 2) {
  EXPECT_NEAR(actual.red(), expected.red(), tolerance) << actual.name().toStdString();
  EXPECT_NEAR(actual.green(), expected.green(), tolerance) << actual.name().toStdString();
  EXPECT_NEAR(actual.blue(), expected.blue(), tolerance) << actual.name().toStdString();
}

// `color` at `alpha` over the chart's background.
QColor over(const SunburstColor& color, double alpha) {
  const SunburstColor& b = sunburst::kBackground;
  return QColor::fromRgbF(color.red * alpha + b.red * (1 - alpha),
                          color.green * alpha + b.green * (1 - alpha),
                          color.blue * alpha + b.blue * (1 - alpha));
}

TEST_F(SunburstViewTest, PointerMovesReportEachNewHoveredNodeOnce) {
  QSignalSpy hovered(&view_, &SunburstView::didHoverNode);
  QTest::mouseMove(&view_, pointAt(kPi / 2, 67));
  QTest::mouseMove(&view_, pointAt(kPi / 2 + 0.2, 70));  // still "first"
  QTest::mouseMove(&view_, pointAt(1.5 * kPi, 67));
  QTest::mouseMove(&view_, pointAt(1.5 * kPi, 100));
  QTest::mouseMove(&view_, pointAt(1.5 * kPi, 83));  // the gap between the rings
  ASSERT_EQ(hovered.count(), 4);
  EXPECT_EQ(hovered[0][0].value<ScanNode*>(), first_);
  EXPECT_EQ(hovered[1][0].value<ScanNode*>(), second_);
  EXPECT_EQ(hovered[2][0].value<ScanNode*>(), inner_);
  EXPECT_EQ(hovered[3][0].value<ScanNode*>(), nullptr);
  EXPECT_EQ(view_.hoveredSegment(), nullptr);
}

TEST_F(SunburstViewTest, ClicksSelectSegmentsCentreAsksForTheParentAndNewRootsClearTheSelection) {
  QSignalSpy chosen(&view_, &SunburstView::didChooseNode);
  QSignalSpy parent(&view_, &SunburstView::didRequestParent);
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(1.5 * kPi, 100));
  ASSERT_EQ(chosen.count(), 1);
  EXPECT_EQ(chosen[0][0].value<ScanNode*>(), inner_);
  EXPECT_EQ(view_.selectedNode(), inner_);
  // Empty space, the ring gap and the centre of a root without parent do nothing.
  QTest::mouseClick(&view_, Qt::LeftButton, {}, QPoint(2, 2));
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(kPi / 2, 100));
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(0, 10));
  EXPECT_EQ(chosen.count(), 1);
  EXPECT_EQ(parent.count(), 0);
  EXPECT_EQ(view_.selectedNode(), inner_);
  // A click exactly on the boundary straight down picks the later segment.
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(kPi, 67));
  ASSERT_EQ(chosen.count(), 2);
  EXPECT_EQ(chosen[1][0].value<ScanNode*>(), second_);

  view_.setRootNode(second_->ref());
  EXPECT_EQ(view_.selectedNode(), nullptr);
  ASSERT_EQ(view_.segments().size(), 1u);
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(0.3, 49));
  EXPECT_EQ(parent.count(), 1);
}

TEST_F(SunburstViewTest, PaintsFoldersByHueOnTheirSideOfTheCircle) {
  const QImage image = view_.grab().toImage();
  EXPECT_EQ(image.size(), QSize(400, 400));
  const QColor background = toQColor(sunburst::kBackground);
  expectColorNear(image.pixelColor(3, 3), background);
  expectColorNear(image.pixelColor(pointAt(kPi / 2, 67)), toQColor(sunburst::hueColor(0.25, 0)));
  expectColorNear(image.pixelColor(pointAt(1.5 * kPi, 67)), toQColor(sunburst::hueColor(0.75, 0)));
  expectColorNear(image.pixelColor(pointAt(1.5 * kPi, 100)), toQColor(sunburst::kFileGrey));
  // Free of rings: the centre disc away from its label, the ring beyond "first".
  expectColorNear(image.pixelColor(pointAt(0.5, 40)), background);
  expectColorNear(image.pixelColor(pointAt(kPi / 2, 100)), background);
  // The centre label is teal text on the disc.
  bool teal = false;
  for (int x = -30; x <= 30 && !teal; ++x)
    for (int y = -6; y <= 6 && !teal; ++y) {
      const QColor c = image.pixelColor(view_.chartCenter().toPoint() + QPoint(x, y));
      teal = c.green() > 150 && c.red() < 120;
    }
  EXPECT_TRUE(teal);
  // The browser takes the same colours for its list and title.
  EXPECT_EQ(view_.colorForNode(first_), toQColor(sunburst::hueColor(0.25, 0)));
  EXPECT_EQ(view_.colorForNode(root_.get()), std::nullopt);
  EXPECT_EQ(view_.rootColor(), toQColor(sunburst::kAccentTeal));
  view_.setRootNode(second_->ref());
  EXPECT_EQ(view_.rootColor(), toQColor(sunburst::hueColor(0.75, 0)));
}

TEST_F(SunburstViewTest, HoverListHoverAndSelectionChangeTheFill) {
  const SunburstColor base = sunburst::hueColor(0.25, 0);
  QTest::mouseMove(&view_, pointAt(kPi / 2, 67));
  ASSERT_NE(view_.hoveredSegment(), nullptr);
  EXPECT_TRUE(view_.hoverFlickerBright());
  expectColorNear(pixelAt(kPi / 2, 67), toQColor(sunburst::blendTowardWhite(base, 0.3)));
  view_.setHoverFlickerBright(false);
  expectColorNear(pixelAt(kPi / 2, 67), toQColor(sunburst::blendTowardWhite(base, 0.08)));
  // Leaving the chart drops the highlight.
  QTest::mouseMove(&view_, QPoint(2, 2));
  expectColorNear(pixelAt(kPi / 2, 67), toQColor(base));

  view_.setListHoveredNode(first_);
  expectColorNear(pixelAt(kPi / 2, 67), toQColor(sunburst::blendTowardWhite(base, 0.34)));
  view_.setListHoveredNode(nullptr);

  // Selecting "second" dims every other segment to 32 %.
  QTest::mouseClick(&view_, Qt::LeftButton, {}, pointAt(1.5 * kPi, 67));
  expectColorNear(pixelAt(kPi / 2, 67), over(base, 0.32));
  expectColorNear(pixelAt(1.5 * kPi, 67), toQColor(sunburst::hueColor(0.75, 0)));
  expectColorNear(pixelAt(1.5 * kPi, 100), over(sunburst::kFileGrey, 0.32));
  // A hovered dimmed segment stays dimmed, only lighter.
  QTest::mouseMove(&view_, pointAt(kPi / 2, 67));
  expectColorNear(pixelAt(kPi / 2, 67), over(sunburst::blendTowardWhite(base, 0.3), 0.32));
}

TEST_F(SunburstViewTest, EmptyFolderShowsAFaintRingAndAMessage) {
  view_.setRootNode(makeFolderRoot(0, "/empty"));
  EXPECT_TRUE(view_.segments().empty());
  const QImage image = view_.grab().toImage();
  const QPoint centre = view_.chartCenter().toPoint();
  // The 2-pixel ring at radius 64 (not scaled): white at 7.5 % over the background.
  expectColorNear(image.pixelColor(centre + QPoint(64, 0)), over({1, 1, 1}, 0.075));
  expectColorNear(image.pixelColor(centre + QPoint(0, -64)), over({1, 1, 1}, 0.075));
  expectColorNear(image.pixelColor(centre + QPoint(40, 0)), over({1, 1, 1}, 0));
  // Grey text below the ring, starting 82 pixels under the centre; nothing above that line.
  int textPixels = 0;
  int pixelsAbove = 0;
  for (int y = centre.y() + 66; y < centre.y() + 110; ++y)
    for (int x = 0; x < image.width(); ++x)
      if (image.pixelColor(x, y).red() > 60) (y < centre.y() + 82 ? pixelsAbove : textPixels)++;
  EXPECT_GT(textPixels, 20);
  EXPECT_EQ(pixelsAbove, 0);
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
  view_.setListHoveredNode(first_);
  QTest::qWait(50);
  const int afterChange = counter.paints;
  EXPECT_GE(afterChange, 1);
  view_.setListHoveredNode(first_);
  QTest::qWait(50);
  EXPECT_EQ(counter.paints, afterChange);
  view_.setListHoveredNode(nullptr);
  QTest::qWait(50);
  EXPECT_GT(counter.paints, afterChange);
}

}  // namespace
}  // namespace tw
