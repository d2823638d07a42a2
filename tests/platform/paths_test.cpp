// Path text rules: standard form, names, containment and the home folder.
#include "platform/paths.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace tw
