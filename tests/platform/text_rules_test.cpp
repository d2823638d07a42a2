// Text rules: standard paths, names and containment, the natural name order and wildcard
// matching of names.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/natural_order.h"
#include "platform/paths.h"

namespace tw {
namespace {

TEST(Paths, StandardizingCollapsesSlashesDotsAndTrailingSeparatorsKeepingOddBytes) {
  const std::pair<const char*, const char*> cases[] = {{"/a//b/./c/", "/a/b/c"},
                                                       {"/a/b/../c", "/a/c"},
                                                       {"/..", "/"},  // odd bytes stay
                                                       {"/", "/"},
                                                       {"", ""},
                                                       {"/bad\xff/n\xfe", "/bad\xff/n\xfe"}};
  for (const auto& [path, standard] : cases) EXPECT_EQ(standardizePath(path), standard) << path;
  // User paths expand a leading tilde first and never touch the disk.
  const std::string home = homeDirectory();
  EXPECT_EQ(standardizeUserPath("~"), standardizePath(home));
  EXPECT_EQ(standardizeUserPath("~/a/../b/"), standardizePath(home + "/b"));
  EXPECT_EQ(standardizeUserPath("/no/such/./x/.."), "/no/such");
  EXPECT_EQ(standardizeUserPath("/x/caf\xe9/"), "/x/caf\xe9");
  EXPECT_EQ(standardizeUserPath(""), "");
  EXPECT_EQ(expandTilde("~", "/home/u"), "/home/u");
  EXPECT_EQ(expandTilde("~/Downloads", "/home/u"), "/home/u/Downloads");
  EXPECT_EQ(expandTilde("/tmp/~x", "/home/u"), "/tmp/~x");
}

TEST(Paths, NamesParentsAndInsideMeansBelowTheFolderFollowedBySlash) {
  EXPECT_EQ(displayNameForPath("/"), "/");
  EXPECT_EQ(displayNameForPath("/a/b/"), "b");
  EXPECT_EQ(displayNameForPath("/a/b"), "b");
  EXPECT_EQ(parentPath("/a"), "/");
  EXPECT_EQ(parentPath("/a/b"), "/a");
  EXPECT_EQ(appendPathComponent("/", "x"), "/x");
  EXPECT_TRUE(isInside("/a/b", "/a"));
  EXPECT_TRUE(isInside("/x", "/"));
  EXPECT_FALSE(isInside("/ab", "/a"));
  EXPECT_FALSE(isInside("/a", "/a"));
  EXPECT_FALSE(isInside("/", "/"));
  EXPECT_TRUE(isSameOrInside("/a", "/a"));
  EXPECT_FALSE(isSameOrInside("/a", ""));
}

bool before(std::string_view a, std::string_view b) {
  return naturalCompare(a, b) < 0;
}

TEST(NaturalOrder, DigitsCompareAsNumbersAndLettersIgnoreCaseAndAccentsUntilTheTieBreak) {
  const std::pair<const char*, const char*> ordered[] = {
      {"f2.txt", "f10.txt"},
      {"file 9", "file 10"},
      {"v1.2", "v1.10"},
      {"9", "10"},  // numbers
      {"x99999999999999999999999", "x100000000000000000000000"},
      {"apple", "Banana"},
      {"Apple", "banana"},
      {"écrire", "fable"},
      {"Ünïcode a", "unicode b"}};
  for (const auto& [a, b] : ordered) EXPECT_TRUE(before(a, b)) << a << " < " << b;
  // Equal apart from case, or leading zeros: decided on the raw bytes, never equal.
  EXPECT_NE(naturalCompare("Readme", "README"), 0);
  EXPECT_EQ(naturalCompare("Readme", "README"), -naturalCompare("README", "Readme"));
  EXPECT_NE(naturalCompare("f01", "f1"), 0);
  EXPECT_EQ(naturalCompare("same", "same"), 0);
}

TEST(NaturalOrder, IsAStrictWeakOrderOverMixedAndInvalidNames) {
  std::vector<std::string> names = {"f10",         "F2",      "f2",   "é",     "e",     "E",
                                    "bad\xff\xfe", "bad\xff", "a1b2", "a01b2", "a1b10", "x",
                                    "x0",          "x00",     "~",    "_",     "Z"};
  names.insert(names.end(), {"", "\xc3", "Ünïcode ƒile 3.txt"});
  for (const auto& a : names) {
    EXPECT_EQ(naturalCompare(a, a), 0);
    for (const auto& b : names) {
      EXPECT_EQ(naturalCompare(a, b) < 0, naturalCompare(b, a) > 0) << a << " / " << b;
      for (const auto& c : names)
        EXPECT_TRUE(!before(a, b) || !before(b, c) || before(a, c)) << a << " " << b << " " << c;
    }
  }
  std::sort(names.begin(), names.end(), before);  // must not misbehave
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end(), before));
}

TEST(Wildcard, MatchesWholeNamesWithoutRegardToCaseOrAccents) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"*.log", "c.LOG", true},   {"*.log", "c.LOG.old", false},  // whole names, any case
      {"cafe", "Café", true},     {"CAFÉ*", "cafe au lait", true},  {"?.txt", "é.txt", true},
      {"?.txt", "ab.txt", false}, {"a*b*c", "aXXbYYbc", true},      {"*", "", true},
      {"a", "", false},           {"bad*", "bad\xff\xfename", true}};
  for (const auto& [pattern, name, matches] : cases)
    EXPECT_EQ(WildcardPattern(pattern).matches(name), matches) << pattern << " ~ " << name;
}

}  // namespace
}  // namespace tw
