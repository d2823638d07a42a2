// tarnwell-scan as a user runs it: the JSON line of figures, the plain listing, the exit status
// and messages for roots it cannot scan, and bad arguments.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "scan/directory_scanner.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

using test::allocatedSize;
using test::TempTree;

std::string toolPath() {
  return TARNWELL_SCAN_TOOL;
}

struct ToolRun {
  int status = -1;  // exit status; -1 when it crashed, -2 when it hung and was stopped
  std::string out;
  std::string err;
};

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs tarnwell-scan with `args`, as user nobody when asked; a run longer than 20 s is stopped.
ToolRun runTool(const std::vector<std::string>& args, bool unprivileged = false) {
  TempTree outputs;
  const std::string outPath = outputs.path("out"), errPath = outputs.path("err");
  const int outFd = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const int errFd = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const std::string tool = toolPath();
  std::vector<char*> argv{const_cast<char*>(tool.c_str())};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  auto exec = [&] {
    dup2(outFd, STDOUT_FILENO);
    dup2(errFd, STDERR_FILENO);
    execv(tool.c_str(), argv.data());
    return 127;
  };

  ToolRun run;
  if (unprivileged) {
    run.status = test::runUnprivileged(exec);
  } else {
    const pid_t pid = fork();
    if (pid == 0) _exit(exec());
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    pid_t done = 0;
    while ((done = waitpid(pid, &status, WNOHANG)) == 0 &&
           std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (done == 0) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      run.status = -2;
    } else {
      run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
  }
  close(outFd);
  close(errFd);
  run.out = readAll(outPath);
  run.err = readAll(errPath);
  return run;
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

// Byte counts as people read them: "0", whole bytes below 1000, else one decimal in 1000s.
std::string byteText(uint64_t bytes) {
  if (bytes == 0) return "0";
  if (bytes < 1000) return std::to_string(bytes) + " B";
  const char* units[] = {"KB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes) / 1000;
  int unit = 0;
  while (value >= 1000 && unit < 3) {
    value /= 1000;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
  return text;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? std::string() : text.substr(first);
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
    ToolRun run = runTool({"--threads", threads, "--json", tree.root()});
    ASSERT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(lines(run.out).size(), 1u) << run.out;
    const std::string line = lines(run.out)[0];
    EXPECT_EQ(line.front(), '{');
    EXPECT_EQ(line.back(), '}');
    for (const char* key : {"entries", "nodes", "bytes", "fingerprint", "items", "issues", "walk_s",
                            "sort_s", "peak_rss_bytes"})
      EXPECT_NE(jsonValue(line, key), "<missing>") << key;
    EXPECT_EQ(jsonNumber(line, "bytes"), bytes);
    // Six items; the second name of the hard link is summed into the fingerprint but not visited.
    EXPECT_EQ(jsonNumber(line, "entries"), 5u);
    EXPECT_EQ(jsonNumber(line, "items"), 6u);
    EXPECT_EQ(jsonNumber(line, "nodes"), 6u);  // the root and five items
    EXPECT_EQ(jsonValue(line, "fingerprint"), fingerprint);
    EXPECT_EQ(jsonNumber(line, "issues"), 0u);
    EXPECT_GE(std::strtod(jsonValue(line, "walk_s").c_str(), nullptr), 0.0);
    EXPECT_GE(std::strtod(jsonValue(line, "sort_s").c_str(), nullptr), 0.0);
    EXPECT_GT(jsonNumber(line, "peak_rss_bytes"), 0u);
  }
}

TEST(TarnwellScanJson, RootThatIsNotUtf8StillGivesValidJson) {
  TempTree tree;
  const std::string root = tree.folder("caf\xe9");
  tree.file("caf\xe9/x.bin", 4096);
  ToolRun run = runTool({"--json", root});
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

  ToolRun run = runTool({tree.root()});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::vector<std::string> out = lines(run.out);
  ASSERT_GE(out.size(), 5u) << run.out;
  EXPECT_EQ(out[0],
            byteText(big + mid + odd) + "  " + tree.root().substr(tree.root().rfind('/') + 1));
  EXPECT_EQ(trimmed(out[1]), byteText(big) + "  big.bin");
  EXPECT_EQ(trimmed(out[2]), byteText(mid) + "  mid/");
  EXPECT_EQ(trimmed(out[3]), byteText(odd) + "  caf\xe9.bin");  // the name's bytes as they are
  EXPECT_EQ(trimmed(out[4]), "0  empty.txt");
  EXPECT_EQ(run.err, "");
}

TEST(TarnwellScanListing, IssuesArePrintedAfterTheChildren) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run the tool as user nobody";
  TempTree tree;
  tree.file("locked/secret.bin", 4096);
  tree.file("open.bin", 4096);
  chmod(tree.path("locked").c_str(), 0700);
  ToolRun run = runTool({tree.root()}, /*unprivileged=*/true);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("1 scan issue:\n  " + tree.path("locked") + ": Permission denied\n"),
            std::string::npos)
      << run.out;
}

// --- Roots that cannot be scanned -------------------------------------------------------------

TEST(TarnwellScanRoots, MissingRootExitsWithTheIssueText) {
  TempTree tree;
  ToolRun run = runTool({tree.path("nothing-here")});
  EXPECT_NE(run.status, 0);
  EXPECT_GT(run.status, 0) << "crashed or hung";
  EXPECT_NE(run.err.find(tree.path("nothing-here") + ": No such file or directory"),
            std::string::npos)
      << run.err;
}

TEST(TarnwellScanRoots, RegularFileRootExitsWithTheIssueText) {
  TempTree tree;
  const std::string file = tree.file("plain.txt", 100);
  for (bool json : {false, true}) {
    ToolRun run = json ? runTool({"--json", file}) : runTool({file});
    EXPECT_GT(run.status, 0) << "crashed, hung or succeeded";
    EXPECT_NE(run.err.find(file + ": Not a directory"), std::string::npos) << run.err;
  }
}

TEST(TarnwellScanRoots, FifoRootFailsWithoutWaiting) {
  TempTree tree;
  const std::string fifo = tree.fifo("pipe");
  ToolRun run = runTool({fifo});
  EXPECT_GT(run.status, 0) << "crashed, hung or succeeded";
  EXPECT_NE(run.err.find(fifo + ": Not a directory"), std::string::npos) << run.err;
}

TEST(TarnwellScanRoots, UnreadableRootExitsWithPermissionDenied) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run the tool as user nobody";
  TempTree tree;
  const std::string locked = tree.folder("locked");
  tree.file("locked/secret.bin", 4096);
  chmod(locked.c_str(), 0700);
  ToolRun run = runTool({locked}, /*unprivileged=*/true);
  EXPECT_GT(run.status, 0);
  EXPECT_NE(run.err.find(locked + ": Permission denied"), std::string::npos) << run.err;
}

// --- Arguments --------------------------------------------------------------------------------

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
    ToolRun run = runTool(args);
    EXPECT_EQ(run.status, 2) << shown;
    EXPECT_NE(run.err.find("usage: tarnwell-scan"), std::string::npos) << shown;
    EXPECT_EQ(run.out, "") << shown;
  }
  ToolRun help = runTool({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: tarnwell-scan"), std::string::npos);
}

}  // namespace
}  // namespace tw
