// Shared by the browser tests: one private desktop world (HOME, XDG folders and the QApplication)
// for the whole program, and the widget point at a chart angle and unscaled radius.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "browser/sunburst_angles.h"
#include "browser/sunburst_view.h"
#include "support/desktop_environment.h"

namespace tw::test {

class BrowserEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { world_ = std::make_unique<DesktopEnvironment>(); }
  void TearDown() override { world_.reset(); }

 private:
  std::unique_ptr<DesktopEnvironment> world_;
};
inline ::testing::Environment* const kBrowserEnvironment =
    ::testing::AddGlobalTestEnvironment(new BrowserEnvironment);

// The widget point of `view` at chart angle `angle` (clockwise from three o'clock) and `radius`.
inline QPoint pointAt(const SunburstView& view, double angle, double radius) {
  const double r = radius * view.chartScale();
  return (view.chartCenter() +
          QPointF(sunburst::offsetXAt(angle, r), sunburst::offsetYAt(angle, r)))
      .toPoint();
}

}  // namespace tw::test
