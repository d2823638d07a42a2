// tarnwell-scan saving a scan database and showing it again without scanning.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "store/scan_store.h"
#include "store/store_test_support.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

struct ToolRun {
  int status = -1;
  std::string output;
};

ToolRun run(const std::string& arguments) {
  // The build folder: from ctest's environment, else two levels above this test program.
  std::string dir;
  if (const char* env = std::getenv("TARNWELL_BINARY_DIR")) {
    dir = env;
  } else {
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string exe(self, n > 0 ? n : 0);
    dir = exe.substr(0, exe.rfind('/')) + "/../..";
  }
  std::string command = dir + "/tarnwell-scan " + arguments + " 2>&1";
  ToolRun result;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return result;
  char buffer[4096];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, got);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

TEST(StoreCliTest, SavesTheScanAndShowsItAgainWithoutScanning) {
  test::TempTree tree;
  tree.file("scanned/big.bin", 200000);
  tree.file("scanned/sub/small.txt", 100);
  const std::string database = tree.path("out/scan.sqlite");
  ToolRun saved = run("--json -o '" + database + "' '" + tree.path("scanned") + "'");
  ASSERT_EQ(saved.status, 0) << saved.output;
  EXPECT_NE(saved.output.find("\"write_s\":"), std::string::npos) << saved.output;
  EXPECT_NE(saved.output.find("\"walk_s\":"), std::string::npos) << saved.output;
  auto metadata = ScanStore::metadataAt(database);
  ASSERT_TRUE(metadata);
  EXPECT_EQ(metadata->locationPath, tree.path("scanned"));

  ToolRun opened = run("--json --open '" + database + "'");
  ASSERT_EQ(opened.status, 0) << opened.output;
  EXPECT_NE(opened.output.find("\"open_s\":"), std::string::npos) << opened.output;
  EXPECT_NE(opened.output.find("\"children\":2"), std::string::npos) << opened.output;

  ToolRun listed = run("--open '" + database + "'");
  ASSERT_EQ(listed.status, 0) << listed.output;
  EXPECT_NE(listed.output.find("big.bin"), std::string::npos) << listed.output;
  EXPECT_NE(listed.output.find("sub/"), std::string::npos) << listed.output;
  EXPECT_NE(listed.output.find("Location: " + tree.path("scanned")), std::string::npos);
}

TEST(StoreCliTest, OpeningAFileThatIsNotAScanDatabaseFails) {
  test::TempTree tree;
  const std::string file = tree.file("notes.txt", 5000);
  ToolRun opened = run("--open '" + file + "'");
  EXPECT_EQ(opened.status, 1);
  EXPECT_NE(opened.output.find("Open scan database: file is not a database"), std::string::npos)
      << opened.output;
}

}  // namespace
}  // namespace tw
