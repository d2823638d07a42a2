// tarnwell-scan as a user runs it: the JSON line of figures, the plain listing, saving a scan
// database and showing it again, the exit status and messages for roots it cannot scan, and bad
// arguments.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "scan/directory_scanner.h"
#include "store/scan_store.h"
#include "support/temp_tree.h"
#include "ui/byte_count.h"

namespace tw {
namespace {

using test::allocatedSize;
using test::ProcessRun;
using test::TempTree;

// Runs tarnwell-scan with `args`, as user nobody when asked; a run longer than 20 s is stopped.
ProcessRun runTool(std::vector<std::string> args, bool unprivileged = false) {
  args.insert(args.begin(), TARNWELL_SCAN_TOOL);
  return test::runProcess(args, unprivileged);
}

// The text after `"key":` in a JSON line, up to the next comma or brace.
std::string jsonValue(const std::string& line, const std::string& key) {
  const std::string marker = "\"" + key + "\":";
  const std::size_t at = line.find(marker);
  if (at == std::string::npos) return "<missing>";
  const std::size_t start = at + marker.size();
  return line.substr(start, line.find_first_of(",}", start) - start);
}

uint64_t jsonNumber(const std::string& line, const std::string& key) {
  return std::strtoull(jsonValue(line, key).c_str(), nullptr, 10);
}

// The lines of `text`, each without its leading spaces.
std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    out.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
  return out;
}

// --- Figures ----------------------------------------------------------------------------------

TEST(TarnwellScanJson, OneLineWithTheFiguresOfAKnownTree) {
  TempTree tree;
  const uint64_t bytes = allocatedSize(tree.file("a.bin", 100000)) +
                         allocatedSize(tree.file("sub/b.bin", 20000)) +
                         allocatedSize(tree.file("sub/c.bin", 0));
  tree.hardLink("a.bin", "other/a-again.bin");
  SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(tree.root(), {});
  char fingerprint[32];
  std::snprintf(fingerprint, sizeof fingerprint, "\"%016llx\"",
                static_cast<unsigned long long>(snapshot.fingerprint));

  for (const char* threads : {"1", "2", "4"}) {
    ProcessRun run = runTool({"--threads", threads, "--json", tree.root()});
    ASSERT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(lines(run.out).size(), 1u) << run.out;
    const std::string line = lines(run.out)[0];
    EXPECT_EQ(line.front(), '{');
    EXPECT_EQ(line.back(), '}');
    for (const char* key : {"walk_s", "sort_s"}) {
      const std::string seconds = jsonValue(line, key);
      EXPECT_TRUE(seconds != "<missing>" && std::strtod(seconds.c_str(), nullptr) >= 0) << line;
    }
    EXPECT_EQ(jsonNumber(line, "bytes"), bytes);
    // Six items; the second name of the hard link is summed into the fingerprint but not visited.
    EXPECT_EQ(jsonNumber(line, "entries"), 5u);
    EXPECT_EQ(jsonNumber(line, "items"), 6u);
    EXPECT_EQ(jsonNumber(line, "nodes"), 6u);  // the root and five items
    EXPECT_EQ(jsonValue(line, "fingerprint"), fingerprint);
    EXPECT_EQ(jsonValue(line, "issues"), "0");
    EXPECT_GT(jsonNumber(line, "peak_rss_bytes"), 0u);
  }
}

TEST(TarnwellScanJson, RootThatIsNotUtf8StillGivesValidJson) {
  TempTree tree;
  const std::string root = tree.folder("caf\xe9");
  tree.file("caf\xe9/x.bin", 4096);
  ProcessRun run = runTool({"--json", root});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.find("caf\xe9"), std::string::npos);
  EXPECT_NE(run.out.find("caf\xEF\xBF\xBD"), std::string::npos) << run.out;
  EXPECT_EQ(jsonNumber(run.out, "bytes"), allocatedSize(tree.path("caf\xe9/x.bin")));
}

// --- Listing ----------------------------------------------------------------------------------

TEST(TarnwellScanListing, ChildrenLargestFirstWithByteCountText) {
  TempTree tree;
  const uint64_t big = allocatedSize(tree.file("big.bin", 2500000));
  const uint64_t mid = allocatedSize(tree.file("mid/inner.bin", 300000));
  const uint64_t odd = allocatedSize(tree.file("caf\xe9.bin", 40000));
  tree.file("empty.txt", 0);
  ASSERT_GT(big, mid);
  ASSERT_GT(mid, odd);

  ProcessRun run = runTool({tree.root()});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::vector<std::string> out = lines(run.out);
  ASSERT_GE(out.size(), 5u) << run.out;
  EXPECT_EQ(out[0], formatByteCount(big + mid + odd) + "  " +
                        tree.root().substr(tree.root().rfind('/') + 1));
  EXPECT_EQ(out[1], formatByteCount(big) + "  big.bin");
  EXPECT_EQ(out[2], formatByteCount(mid) + "  mid/");
  EXPECT_EQ(out[3], formatByteCount(odd) + "  caf\xe9.bin");  // the name's bytes as they are
  EXPECT_EQ(out[4], "0  empty.txt");
  EXPECT_EQ(run.err, "");
}

TEST(TarnwellScanListing, IssuesArePrintedAfterTheChildren) {
  TW_SKIP_UNLESS_ROOT();
  TempTree tree;
  tree.file("locked/secret.bin", 4096);
  tree.file("open.bin", 4096);
  chmod(tree.path("locked").c_str(), 0700);
  ProcessRun run = runTool({tree.root()}, /*unprivileged=*/true);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("1 scan issue:\n  " + tree.path("locked") + ": Permission denied\n"),
            std::string::npos)
      << run.out;
}

// --- Saved scans ------------------------------------------------------------------------------

TEST(TarnwellScanSaved, SavesTheScanAndShowsItAgainWithoutScanning) {
  TempTree tree;
  tree.file("scanned/big.bin", 200000);
  tree.file("scanned/sub/small.txt", 100);
  const std::string database = tree.path("out/scan.sqlite");
  ProcessRun saved = runTool({"--json", "-o", database, tree.path("scanned")});
  ASSERT_EQ(saved.status, 0) << saved.err;
  EXPECT_NE(jsonValue(saved.out, "write_s"), "<missing>") << saved.out;
  EXPECT_NE(jsonValue(saved.out, "walk_s"), "<missing>") << saved.out;
  auto metadata = ScanStore::metadataAt(database);
  ASSERT_TRUE(metadata);
  EXPECT_EQ(metadata->locationPath, tree.path("scanned"));

  ProcessRun opened = runTool({"--json", "--open", database});
  ASSERT_EQ(opened.status, 0) << opened.err;
  EXPECT_NE(jsonValue(opened.out, "open_s"), "<missing>") << opened.out;
  EXPECT_EQ(jsonValue(opened.out, "children"), "2") << opened.out;

  ProcessRun listed = runTool({"--open", database});
  ASSERT_EQ(listed.status, 0) << listed.err;
  for (const std::string& text :
       {std::string("big.bin"), std::string("sub/"), "Location: " + tree.path("scanned")})
    EXPECT_NE(listed.out.find(text), std::string::npos) << listed.out;
}

// --- Inputs that cannot be scanned or opened --------------------------------------------------

TEST(TarnwellScanRoots, RootsThatCannotBeScannedExitWithTheIssueText) {
  TempTree tree;
  const std::string file = tree.file("plain.txt", 100);
  const std::string locked = tree.folder("locked");
  tree.file("locked/secret.bin", 4096);
  chmod(locked.c_str(), 0700);
  struct Case {
    std::vector<std::string> args;
    std::string message;
    bool asNobody = false;
  } cases[] = {
      {{tree.path("nothing-here")}, tree.path("nothing-here") + ": No such file or directory"},
      {{file}, file + ": Not a directory"},
      {{"--json", file}, file + ": Not a directory"},
      {{tree.fifo("pipe")}, tree.path("pipe") + ": Not a directory"},  // without waiting
      {{locked}, locked + ": Permission denied", true},
      {{"--open", file}, "Open scan database: file is not a database"},
  };
  for (const Case& c : cases) {
    if (c.asNobody && geteuid() != 0) continue;  // only root can become nobody
    ProcessRun run = runTool(c.args, c.asNobody);
    EXPECT_EQ(run.status, 1) << c.message << ": crashed, hung or succeeded";
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
  }
}

TEST(TarnwellScanArguments, BadArgumentsExitTwoWithUsage) {
  TempTree tree;
  const std::string root = tree.root();
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"--json"},
      {"--bogus", root},
      {root, root},
      {"--threads"},
      {root, "--threads"},
      {"--threads", "abc", root},
      {"--threads", "0", root},
      {"--threads", "-2", root},
      {"--threads", "3x", root},
  };
  for (const auto& args : cases) {
    std::string shown;
    for (const std::string& arg : args) shown += "'" + arg + "' ";
    ProcessRun run = runTool(args);
    EXPECT_EQ(run.status, 2) << shown;
    EXPECT_NE(run.err.find("usage: tarnwell-scan"), std::string::npos) << shown;
    EXPECT_EQ(run.out, "") << shown;
  }
  ProcessRun help = runTool({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: tarnwell-scan"), std::string::npos);
}

}  // namespace
}  // namespace tw
