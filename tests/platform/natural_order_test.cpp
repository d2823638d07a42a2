#include "platform/natural_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tw {
namespace {

bool before(std::string_view a, std::string_view b) {
  return naturalCompare(a, b) < 0;
}

TEST(NaturalOrder, DigitRunsCompareAsNumbers) {
  EXPECT_TRUE(before("f2.txt", "f10.txt"));
  EXPECT_TRUE(before("file 9", "file 10"));
  EXPECT_TRUE(before("v1.2", "v1.10"));
  EXPECT_TRUE(before("9", "10"));
  EXPECT_TRUE(before("x99999999999999999999999", "x100000000000000000000000"));
}

TEST(NaturalOrder, LettersIgnoreCaseAndAccentsUntilTheFinalTieBreak) {
  EXPECT_TRUE(before("apple", "Banana"));
  EXPECT_TRUE(before("Apple", "banana"));
  EXPECT_TRUE(before("écrire", "fable"));  // é sorts with e
  EXPECT_TRUE(before("Ünïcode a", "unicode b"));
  // Equal apart from case: decided on the raw bytes, never equal.
  EXPECT_NE(naturalCompare("Readme", "README"), 0);
  EXPECT_EQ(naturalCompare("Readme", "README"), -naturalCompare("README", "Readme"));
  EXPECT_EQ(naturalCompare("same", "same"), 0);
  // Leading zeros compare equal as numbers, then the bytes decide.
  EXPECT_NE(naturalCompare("f01", "f1"), 0);
}

TEST(NaturalOrder, IsAStrictWeakOrderOverMixedAndInvalidNames) {
  std::vector<std::string> names = {"f10",
                                    "F2",
                                    "f2",
                                    "é",
                                    "e",
                                    "E",
                                    "bad\xff\xfe",
                                    "bad\xff",
                                    "a1b2",
                                    "a01b2",
                                    "a1b10",
                                    "",
                                    "Ünïcode ƒile 3.txt",
                                    "\xc3",
                                    "x",
                                    "x0",
                                    "x00",
                                    "~",
                                    "_",
                                    "Z"};
  for (const auto& a : names) {
    EXPECT_EQ(naturalCompare(a, a), 0);
    for (const auto& b : names) {
      EXPECT_EQ(naturalCompare(a, b) < 0, naturalCompare(b, a) > 0) << a << " / " << b;
      for (const auto& c : names) {
        if (before(a, b) && before(b, c)) {
          EXPECT_TRUE(before(a, c)) << a << " " << b << " " << c;
        }
      }
    }
  }
  std::sort(names.begin(), names.end(), before);  // must not misbehave
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end(), before));
}

TEST(Wildcard, MatchesWholeNamesWithoutRegardToCaseOrAccents) {
  EXPECT_TRUE(WildcardPattern("*.log").matches("c.LOG"));
  EXPECT_FALSE(WildcardPattern("*.log").matches("c.LOG.old"));
  EXPECT_TRUE(WildcardPattern("cafe").matches("Café"));
  EXPECT_TRUE(WildcardPattern("CAFÉ*").matches("cafe au lait"));
  EXPECT_TRUE(WildcardPattern("?.txt").matches("é.txt"));
  EXPECT_FALSE(WildcardPattern("?.txt").matches("ab.txt"));
  EXPECT_TRUE(WildcardPattern("a*b*c").matches("aXXbYYbc"));
  EXPECT_TRUE(WildcardPattern("*").matches(""));
  EXPECT_FALSE(WildcardPattern("a").matches(""));
  EXPECT_TRUE(WildcardPattern("bad*").matches("bad\xff\xfename"));
}

}  // namespace
}  // namespace tw
