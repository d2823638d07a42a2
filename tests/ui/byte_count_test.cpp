#include "ui/byte_count.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(ByteCount, FormatsZeroBytesAndEveryDecimalUnitStayingInPetabytesBeyond) {
  EXPECT_EQ(formatByteCount(0), "0");
  EXPECT_EQ(formatByteCount(1), "1 B");
  EXPECT_EQ(formatByteCount(999), "999 B");
  EXPECT_EQ(formatByteCount(1000), "1.0 KB");
  EXPECT_EQ(formatByteCount(1500), "1.5 KB");
  EXPECT_EQ(formatByteCount(999'949), "999.9 KB");
  EXPECT_EQ(formatByteCount(1'000'000), "1.0 MB");
  EXPECT_EQ(formatByteCount(4'096'000'000), "4.1 GB");
  EXPECT_EQ(formatByteCount(2'500'000'000'000), "2.5 TB");
  EXPECT_EQ(formatByteCount(1'000'000'000'000'000), "1.0 PB");
  EXPECT_EQ(formatByteCount(UINT64_MAX), "18446.7 PB");
}

}  // namespace
}  // namespace tw
