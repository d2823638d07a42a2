// Reading the user's reduce-motion choice.
#include "platform/reduce_motion.h"

#include <gtest/gtest.h>

#include <QByteArray>

namespace tw {
namespace {

TEST(ReduceMotion, EnvironmentOverridesTheDesktop) {
  qputenv("TARNWELL_REDUCE_MOTION", "1");
  EXPECT_TRUE(prefersReducedMotion());
  qputenv("TARNWELL_REDUCE_MOTION", "0");
  EXPECT_FALSE(prefersReducedMotion());
  qunsetenv("TARNWELL_REDUCE_MOTION");
}

TEST(ReduceMotion, KdeGlobalsFactorZeroOnlyInTheKdeGroup) {
  EXPECT_EQ(kdeGlobalsDisableAnimations("[KDE]\nAnimationDurationFactor=0\n"), true);
  EXPECT_EQ(
      kdeGlobalsDisableAnimations("[General]\nx=1\r\n[KDE]\r\nAnimationDurationFactor = 0\r\n"),
      true);
  EXPECT_EQ(kdeGlobalsDisableAnimations("[KDE]\nAnimationDurationFactor=0.5\n"), false);
  EXPECT_EQ(
      kdeGlobalsDisableAnimations("[KDE]\nAnimationDurationFactor=0\nAnimationDurationFactor=1"),
      false);
  EXPECT_EQ(kdeGlobalsDisableAnimations("[Other]\nAnimationDurationFactor=0\n"), std::nullopt);
  EXPECT_EQ(kdeGlobalsDisableAnimations("[KDE]\nAnimationDurationFactor=fast\n"), std::nullopt);
  EXPECT_EQ(kdeGlobalsDisableAnimations(""), std::nullopt);
}

}  // namespace
}  // namespace tw
