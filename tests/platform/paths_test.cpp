#include "platform/paths.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(Paths, StandardizingCollapsesSlashesDotsAndTrailingSeparators) {
  EXPECT_EQ(standardizePath("/a//b/./c/"), "/a/b/c");
  EXPECT_EQ(standardizePath("/a/b/../c"), "/a/c");
  EXPECT_EQ(standardizePath("/.."), "/");
  EXPECT_EQ(standardizePath("/"), "/");
  EXPECT_EQ(standardizePath(""), "");
  EXPECT_EQ(standardizePath("/bad\xff/n\xfe"), "/bad\xff/n\xfe");
}

TEST(Paths, NameOfRootIsTheWholePath) {
  EXPECT_EQ(displayNameForPath("/"), "/");
  EXPECT_EQ(displayNameForPath("/a/b/"), "b");
  EXPECT_EQ(displayNameForPath("/a/b"), "b");
}

TEST(Paths, InsideMeansBelowTheFolderFollowedBySlash) {
  EXPECT_TRUE(isInside("/a/b", "/a"));
  EXPECT_FALSE(isInside("/ab", "/a"));
  EXPECT_FALSE(isInside("/a", "/a"));
  EXPECT_TRUE(isSameOrInside("/a", "/a"));
  EXPECT_TRUE(isInside("/x", "/"));
  EXPECT_FALSE(isInside("/", "/"));
  EXPECT_FALSE(isSameOrInside("/a", ""));
}

TEST(Paths, TildeExpandsOnlyAtTheStart) {
  EXPECT_EQ(expandTilde("~", "/home/u"), "/home/u");
  EXPECT_EQ(expandTilde("~/Downloads", "/home/u"), "/home/u/Downloads");
  EXPECT_EQ(expandTilde("/tmp/~x", "/home/u"), "/tmp/~x");
  EXPECT_EQ(parentPath("/a"), "/");
  EXPECT_EQ(parentPath("/a/b"), "/a");
  EXPECT_EQ(appendPathComponent("/", "x"), "/x");
}

TEST(Paths, UserPathsExpandTildeThenStandardizeWithoutTouchingTheDisk) {
  const std::string home = homeDirectory();
  EXPECT_EQ(standardizeUserPath("~"), standardizePath(home));
  EXPECT_EQ(standardizeUserPath("~/a/../b/"), standardizePath(home + "/b"));
  EXPECT_EQ(standardizeUserPath("/no/such/./x/.."), "/no/such");
  EXPECT_EQ(standardizeUserPath("/x/caf\xe9/"), "/x/caf\xe9");
  EXPECT_EQ(standardizeUserPath(""), "");
}

}  // namespace
}  // namespace tw
