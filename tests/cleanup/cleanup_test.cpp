#include "cleanup/cleanup.h"

#include <gtest/gtest.h>

TEST(Cleanup, Builds) {
  SUCCEED();
}
