// Shared by the browser tests: the binary's one QApplication in a private HOME and XDG world, and
// the widget point at a chart angle and unscaled radius.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QApplication>
#include <cstdlib>
#include <memory>

#include "browser/sunburst_angles.h"
#include "browser/sunburst_view.h"
#include "support/temp_tree.h"

namespace tw::test {

class BrowserEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    for (const char* name : {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"})
      ::setenv(name, tree_.folder(name).c_str(), 1);
    const std::string runtime = tree_.folder("run");
    ::chmod(runtime.c_str(), 0700);
    ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    static int argc = 1;
    static char name[] = "browser_test";
    static char* argv[] = {name, nullptr};
    app_ = std::make_unique<QApplication>(argc, argv);
  }
  void TearDown() override { app_.reset(); }

 private:
  TempTree tree_;
  std::unique_ptr<QApplication> app_;
};
inline ::testing::Environment* const kBrowserEnvironment =
    ::testing::AddGlobalTestEnvironment(new BrowserEnvironment);

// The widget point of `view` at chart angle `angle` (clockwise from twelve o'clock) and `radius`.
inline QPoint pointAt(const SunburstView& view, double angle, double radius) {
  const double r = radius * view.chartScale();
  return (view.chartCenter() +
          QPointF(sunburst::offsetXAt(angle, r), sunburst::offsetYAt(angle, r)))
      .toPoint();
}

}  // namespace tw::test
