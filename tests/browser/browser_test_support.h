// Shared by the browser tests: one private desktop world (HOME, XDG folders and the QApplication)
// for the whole program, tree building, and the widget point at a chart angle and unscaled radius.
#pragma once

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>
#include <numbers>

#include "browser/sunburst_angles.h"
#include "browser/sunburst_view.h"
#include "support/desktop_environment.h"
#include "support/scan_trees.h"

namespace tw {

using test::addFile;
using test::addFolder;
using test::makeFolderRoot;
inline constexpr double kPi = std::numbers::pi;

namespace test {

struct BrowserEnvironment : ::testing::Environment {
  void SetUp() override { world = std::make_unique<DesktopEnvironment>(); }
  void TearDown() override { world.reset(); }
  std::unique_ptr<DesktopEnvironment> world;
};
inline ::testing::Environment* const kBrowserEnvironment =
    ::testing::AddGlobalTestEnvironment(new BrowserEnvironment);

// The widget point of `view` at chart angle `angle` (clockwise from three o'clock) and `radius`.
inline QPoint pointAt(const SunburstView& view, double angle, double radius) {
  const double r = radius * view.chartScale();
  const QPointF offset(sunburst::offsetXAt(angle, r), sunburst::offsetYAt(angle, r));
  return (view.chartCenter() + offset).toPoint();
}

}  // namespace test
}  // namespace tw
