// tarnwell-scan as a user runs it: the JSON line of figures, the plain listing, saving a scan
// database and showing it again, the exit status and messages for roots it cannot scan or files
// it cannot read, and bad arguments.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

#include "scan/directory_scanner.h"
#include "store/scan_store.h"
#include "store/store_test_support.h"
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
  const std::size_t at = line.find("\"" + key + "\":");
  if (at == std::string::npos) return "<missing>";
  const std::size_t start = at + key.size() + 3;
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

TEST(TarnwellScan, JsonLineHasTheFiguresOfAKnownTreeAndTheSavedScanShowsAgainWithoutScanning) {
  TempTree tree;
  const std::string root = tree.folder("caf\xe9");
  const uint64_t bytes = allocatedSize(tree.file("caf\xe9/a.bin", 100000)) +
                         allocatedSize(tree.file("caf\xe9/sub/b.bin", 20000)) +
                         allocatedSize(tree.file("caf\xe9/sub/c.bin", 0));
  tree.hardLink("caf\xe9/a.bin", "caf\xe9/other/a-again.bin");
  char fingerprint[32];
  std::snprintf(fingerprint, sizeof fingerprint, "\"%016llx\"",
                static_cast<unsigned long long>(
                    DirectoryScanner::computeSourceSnapshot(root, {}).fingerprint));
  // The last run also saves the scan, which is then shown again without scanning.
  const std::string database = tree.path("out/scan.sqlite");
  for (const char* threads : {"1", "2", "4"}) {
    ProcessRun run = threads[0] == '4' ? runTool({"--threads", "4", "--json", "-o", database, root})
                                       : runTool({"--threads", threads, "--json", root});
    ASSERT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(lines(run.out).size(), 1u) << run.out;
    const std::string line = lines(run.out)[0];
    EXPECT_TRUE(line.front() == '{' && line.back() == '}') << line;
    EXPECT_EQ(line.find("caf\xe9"), std::string::npos);
    EXPECT_NE(line.find("caf\xEF\xBF\xBD"), std::string::npos) << line;
    for (const char* key : {"walk_s", "sort_s"})
      EXPECT_GE(std::strtod(jsonValue(line, key).c_str(), nullptr), 0) << line;
    EXPECT_EQ(jsonNumber(line, "bytes"), bytes);
    // Six items; the second name of the hard link is summed into the fingerprint but not visited.
    EXPECT_EQ(jsonNumber(line, "entries"), 5u);
    EXPECT_EQ(jsonNumber(line, "items"), 6u);
    EXPECT_EQ(jsonNumber(line, "nodes"), 6u);  // the root and five items
    EXPECT_EQ(jsonValue(line, "fingerprint"), fingerprint);
    EXPECT_EQ(jsonValue(line, "issues"), "0");
    EXPECT_GT(jsonNumber(line, "peak_rss_bytes"), 0u);
    EXPECT_EQ(jsonValue(line, "write_s") != "<missing>", threads[0] == '4') << line;
  }
  EXPECT_EQ(ScanStore::metadataAt(database).value_or(ScanMetadata{}).locationPath, root);
  ProcessRun opened = runTool({"--json", "--open", database});
  ASSERT_EQ(opened.status, 0) << opened.err;
  EXPECT_NE(jsonValue(opened.out, "open_s"), "<missing>") << opened.out;
  EXPECT_EQ(jsonValue(opened.out, "children"), "3") << opened.out;
  ProcessRun listed = runTool({"--open", database});
  ASSERT_EQ(listed.status, 0) << listed.err;
  for (const std::string& text : {std::string("a.bin"), std::string("sub/"), "Location: " + root})
    EXPECT_NE(listed.out.find(text), std::string::npos) << listed.out;
}

TEST(TarnwellScan, ListingShowsChildrenLargestFirstThenTheIssues) {
  TempTree tree;
  const uint64_t big = allocatedSize(tree.file("big.bin", 2500000));
  const uint64_t mid = allocatedSize(tree.file("mid/inner.bin", 300000));
  const uint64_t odd = allocatedSize(tree.file("caf\xe9.bin", 40000));
  tree.file("empty.txt", 0);
  tree.file("locked/secret.bin", 0);
  chmod(tree.path("locked").c_str(), 0700);
  ASSERT_TRUE(big > mid && mid > odd);
  ProcessRun run = runTool({tree.root()});
  ASSERT_EQ(run.status, 0) << run.err;
  // The name's bytes as they are; folders end in "/".
  EXPECT_EQ(
      lines(run.out),
      (std::vector<std::string>{
          formatByteCount(big + mid + odd) + "  " + tree.root().substr(tree.root().rfind('/') + 1),
          formatByteCount(big) + "  big.bin", formatByteCount(mid) + "  mid/",
          formatByteCount(odd) + "  caf\xe9.bin", "0  empty.txt", "0  locked/"}));
  EXPECT_EQ(run.err, "");
  if (geteuid() != 0) return;  // only root can become nobody, who cannot read "locked"
  run = runTool({tree.root()}, /*unprivileged=*/true);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("1 scan issue:\n  " + tree.path("locked") + ": Permission denied\n"),
            std::string::npos)
      << run.out;
}

TEST(TarnwellScan, RootsAndFilesThatCannotBeReadExitOneWithTheReason) {
  TempTree tree;
  const std::string file = tree.file("plain.txt", 100);
  const std::string locked = tree.folder("locked");
  chmod(locked.c_str(), 0700);
  // A saved scan whose index of parents is damaged: the root reads, its children do not.
  const std::string damaged = tree.path("damaged.sqlite");
  ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), damaged));
  test::damagePagesOf(damaged, "items_parent_idx");
  const struct {
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
      {{"--open", damaged}, "Read scan items: database disk image is malformed"},
      {{"--json", "--open", damaged}, "Read scan items: database disk image is malformed"},
  };
  for (const auto& c : cases) {
    if (c.asNobody && geteuid() != 0) continue;  // only root can become nobody
    ProcessRun run = runTool(c.args, c.asNobody);
    EXPECT_EQ(run.status, 1) << c.message << ": crashed, hung or succeeded";
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
  }
}

TEST(TarnwellScan, DuplicatesOfASavedScanListLargestFirstAndASecondRunReadsNothing) {
  TempTree tree;
  const std::string root = tree.folder("scan");
  const uint64_t small = allocatedSize(tree.file("scan/a/one.txt", 3000));
  tree.file("scan/b/one copy.txt", 3000);
  test::writeFile(tree.path("scan/other.txt"), std::string(3000, 'o'));
  const uint64_t big = allocatedSize(tree.file("scan/big.bin", 50000));
  tree.file("scan/c/big copy.bin", 50000);
  tree.file("scan/c/big third.bin", 50000);
  const std::string database = tree.path("scan.sqlite");
  ASSERT_EQ(runTool({"-o", database, root}).status, 0);
  ProcessRun listed = runTool({"--open", database, "--duplicates"});
  ASSERT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(lines(listed.out),
            (std::vector<std::string>{
                formatByteCount(big) + " × 3", root + "/big.bin", root + "/c/big copy.bin",
                root + "/c/big third.bin", formatByteCount(small) + " × 2", root + "/a/one.txt",
                root + "/b/one copy.txt",
                "2 groups, 5 files, " + formatByteCount(2 * big + small) + " in extra copies"}));
  ProcessRun again = runTool({"--duplicates", "--json", "--open", database});
  ASSERT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(jsonNumber(again.out, "groups"), 2u);
  EXPECT_EQ(jsonNumber(again.out, "files"), 5u);
  EXPECT_EQ(jsonNumber(again.out, "wasted_bytes"), 2 * big + small);
  EXPECT_EQ(jsonNumber(again.out, "hashed_bytes"), 0u) << again.out;
  EXPECT_NE(jsonValue(again.out, "dup_s"), "<missing>");
}

TEST(TarnwellScan, TrashMovesSafeItemsOfASavedScanAndShrinksItOrMovesNothing) {
  TempTree tree;
  const std::string scan = tree.folder("scan");
  const uint64_t moved =
      allocatedSize(tree.file("scan/a", 50000)) + allocatedSize(tree.file("scan/dir/c", 90000));
  tree.file("scan/b", 1000);
  const std::string database = tree.path("scan.sqlite");
  ASSERT_EQ(runTool({"-o", database, scan}).status, 0);
  const uint64_t before = ScanStore::metadataAt(database)->logicalSize;
  // A private home trash on the tree's own disk.
  auto trash = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"env", "XDG_DATA_HOME=" + tree.path("data"), TARNWELL_SCAN_TOOL});
    return test::runProcess(args);
  };
  ProcessRun run = trash({"--json", "--open", database, "--trash", scan + "/a", scan + "/dir"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(jsonNumber(run.out, "moved"), 2u) << run.out;
  EXPECT_EQ(jsonNumber(run.out, "bytes"), moved) << run.out;
  EXPECT_NE(jsonValue(run.out, "mark_s"), "<missing>") << run.out;
  EXPECT_EQ(test::readFile(tree.path("data/Trash/files/dir/c")).size(), 90000u);
  EXPECT_EQ(ScanStore::metadataAt(database)->logicalSize, before - moved);
  // The scanned folder itself stops everything; nothing moves.
  run = trash({"--open", database, "--trash", scan + "/b", scan});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find(scan + ": Deletion stopped: an item failed the safety check."),
            std::string::npos)
      << run.err;
  run = trash({"--open", database, "--trash", scan + "/b"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, scan + "/b → " + tree.path("data/Trash/files/b") + "\n");
}

TEST(TarnwellScan, BadArgumentsExitTwoWithUsage) {
  for (const char* line :
       {"", "--json", "--bogus /", "/ /", "--threads", "/ --threads", "--threads abc /",
        "--threads 0 /", "--threads -2 /", "--threads 3x /", "--open x.sqlite /", "--trash /",
        "--open x.sqlite --trash", "/ --trash /x", "-o x.sqlite --trash /x", "--duplicates",
        "--duplicates /", "--open x.sqlite --duplicates --threads 2"}) {
    std::vector<std::string> args;
    std::istringstream words(line);
    for (std::string word; words >> word;) args.push_back(word);
    ProcessRun run = runTool(args);
    EXPECT_EQ(run.status, 2) << line;
    EXPECT_NE(run.err.find("usage: tarnwell-scan"), std::string::npos) << line;
    EXPECT_EQ(run.out, "") << line;
  }
  ProcessRun help = runTool({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: tarnwell-scan"), std::string::npos);
}

}  // namespace
}  // namespace tw
