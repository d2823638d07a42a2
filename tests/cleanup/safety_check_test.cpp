// The path safety rule on a real tree: the scanned folder itself, the home folder, "/", system
// folders (also when reached through a link), items outside the scan and items gone since the scan
// all fail; ordinary items inside pass.
#include <gtest/gtest.h>

#include <string>

#include "cleanup/cleanup.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

TEST(SafetyCheck, OnlyItemsInsideTheScanOutsideSystemFoldersAndStillThereMayGo) {
  test::TempTree tree;
  const std::string t = tree.folder("scan");
  SafetyRule rule;
  if (isProtectedPath(t, rule)) GTEST_SKIP() << "the temporary folder " << t << " is protected";
  tree.file("scan/a", 10);
  tree.file("scan/dir/b", 10);
  tree.folder("scan/home");
  tree.symlink("/usr/bin", "scan/into-usr");
  tree.symlink(t + "/a", "scan/to-a");
  tree.symlink(t, "via-link");
  rule.homeFolder = t + "/home";
  rule.protectedHomes = {t + "/dir"};
  const std::string link = tree.path("via-link");

  struct Case {
    std::string path, root;
    bool safe;
  };
  const std::vector<Case> cases = {
      {t + "/a", t, true},
      {t + "/to-a", t, true},     // resolves to a, which is inside
      {link + "/a", link, true},  // the scan root reached through a link
      {t + "/a", "/", true},      // a scan of "/" accepts items anywhere
      {"", t, false},
      {"/", "/", false},
      {t + "/", t, false},            // the scanned folder itself
      {link, t, false},               // the same through a link
      {t + "/home", "/", false},      // the home folder, even in a scan of "/"
      {t + "/a", t + "/dir", false},  // outside the scan
      {t + "/into-usr", t, false},    // a link into a system folder
      {"/etc", "/", false},
      {t + "/dir/b", t, false},  // inside a protected home
      {t + "/gone", t, false},   // removed since the scan
  };
  for (const Case& c : cases)
    EXPECT_EQ(isSafeDeletionPath(c.path, c.root, rule), c.safe) << c.path << " in " << c.root;
}

TEST(SafetyCheck, SystemFoldersAreProtectedEqualOrBelowExceptRemovableDisks) {
  const SafetyRule rule{"/home/u", {"/home/caller"}};
  const std::vector<std::pair<std::string, bool>> cases = {
      {"/usr", true},           {"/usr/lib/x", true},
      {"/private/tmp/x", true}, {"/lib64/ld.so", true},
      {"/run/user/1000", true}, {"/home/caller/x", true},
      {"/usrlocal", false},     {"/home/u/x", false},
      {"/home/callerx", false}, {"/run/media/u/D/x", false},
      {"/media/D/x", false},
  };
  for (const auto& [path, protectedPath] : cases)
    EXPECT_EQ(isProtectedPath(path, rule), protectedPath) << path;
}

}  // namespace
}  // namespace tw
