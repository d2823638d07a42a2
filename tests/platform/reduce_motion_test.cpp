// Reading the user's reduce-motion choice.
#include "platform/reduce_motion.h"

#include <gtest/gtest.h>

#include <QByteArray>

namespace tw {
namespace {

TEST(ReduceMotion, EnvironmentOverridesTheDesktopAndKdeFactorZeroCountsOnlyInTheKdeGroup) {
  qputenv("TARNWELL_REDUCE_MOTION", "1");
  EXPECT_TRUE(prefersReducedMotion());
  qputenv("TARNWELL_REDUCE_MOTION", "0");
  EXPECT_FALSE(prefersReducedMotion());
  qunsetenv("TARNWELL_REDUCE_MOTION");

  const std::pair<const char*, std::optional<bool>> cases[] = {
      {"[KDE]\nAnimationDurationFactor=0\n", true},
      {"[General]\nx=1\r\n[KDE]\r\nAnimationDurationFactor = 0\r\n", true},
      {"[KDE]\nAnimationDurationFactor=0.5\n", false},
      {"[KDE]\nAnimationDurationFactor=0\nAnimationDurationFactor=1", false},
      {"[Other]\nAnimationDurationFactor=0\n", std::nullopt},
      {"[KDE]\nAnimationDurationFactor=fast\n", std::nullopt},
      {"", std::nullopt}};
  for (const auto& [globals, disabled] : cases)
    EXPECT_EQ(kdeGlobalsDisableAnimations(globals), disabled) << globals;
}

}  // namespace
}  // namespace tw
