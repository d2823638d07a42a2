// tarnwell-scan: the headless companion. Scans a folder or disk with the same engine as the app and
// prints the root's children largest first, the scan issues, and with --json one line of figures.
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "cli/json_line.h"
#include "platform/paths.h"
#include "scan/directory_scanner.h"
#include "ui/byte_count.h"

namespace {

constexpr const char* kUsage =
    "usage: tarnwell-scan [--threads N] [--json] PATH\n"
    "  --threads N  threads making system calls, the walk included (default 2)\n"
    "  --json       print one JSON line of figures instead of the listing\n";

uint64_t currentRssBytes() {
  std::ifstream statm("/proc/self/statm");
  uint64_t size = 0, resident = 0;
  statm >> size >> resident;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint64_t peakRssBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

uint64_t countNodes(tw::ScanNode* root) {
  uint64_t count = 0;
  std::vector<tw::ScanNode*> pending{root};
  while (!pending.empty()) {
    tw::ScanNode* node = pending.back();
    pending.pop_back();
    ++count;
    for (tw::ScanNode* child : node->children()) pending.push_back(child);
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  int threads = 2;
  bool json = false;
  std::string path;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--json") {
      json = true;
    } else if (arg == "--threads" && i + 1 < argc) {
      // A whole number from 1 to 256; anything else is a mistake worth saying, not a default.
      char* end = nullptr;
      errno = 0;
      const long value = std::strtol(argv[++i], &end, 10);
      if (errno || end == argv[i] || *end || value < 1 || value > 256) {
        std::fputs(kUsage, stderr);
        return 2;
      }
      threads = static_cast<int>(value);
    } else if (arg == "-h" || arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (path.empty() && (arg.empty() || arg[0] != '-' || arg == "-")) {
      path = arg;
    } else {
      std::fputs(kUsage, stderr);
      return 2;
    }
  }
  if (path.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (path.front() != '/') {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd)) path = tw::appendPathComponent(cwd, path);
  }
  path = tw::standardizePath(path);

  const uint64_t baselineRss = currentRssBytes();
  tw::DirectoryScanner::Options options;
  options.threads = threads;
  tw::DirectoryScanner scanner(options);
  tw::ScanResult result = scanner.scanNow(path, 0, nullptr);
  if (!result.root) {
    std::fprintf(stderr, "tarnwell-scan: %s\n",
                 result.error ? result.error->description.c_str() : "the scan was cancelled");
    return 1;
  }
  tw::ScanNode* root = result.root.get();
  const auto& issues = root->scanIssues();
  bool rootUnreadable = !root->isDirectory();
  for (const tw::ScanIssue& issue : issues)
    if (issue.path == path) rootUnreadable = true;

  if (json) {
    tw::JsonLine line;
    line.add("path", path);
    line.add("entries", result.statistics.itemsVisited);
    line.add("nodes", countNodes(root));
    line.add("bytes", root->size());
    char hex[32];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(root->sourceFingerprint()));
    line.add("fingerprint", std::string(hex));
    line.add("items", static_cast<uint64_t>(root->sourceItemCount()));
    line.add("issues", static_cast<uint64_t>(issues.size()));
    line.add("walk_s", result.statistics.walkSeconds);
    line.add("sort_s", result.statistics.sortSeconds);
    line.add("threads", static_cast<uint64_t>(threads));
    line.add("baseline_rss_bytes", baselineRss);
    line.add("peak_rss_bytes", peakRssBytes());
    std::printf("%s\n", line.text().c_str());
  } else {
    std::printf("%s  %s\n", tw::formatByteCount(root->size()).c_str(), std::string(root->name()).c_str());
    for (tw::ScanNode* child : root->children())
      std::printf("%12s  %s%s\n", tw::formatByteCount(child->size()).c_str(),
                  std::string(child->name()).c_str(), child->isDirectory() && !child->isAggregate() ? "/" : "");
    if (!issues.empty()) {
      std::printf("\n%zu scan issue%s:\n", issues.size(), issues.size() == 1 ? "" : "s");
      for (const tw::ScanIssue& issue : issues)
        std::printf("  %s: %s\n", issue.path.c_str(), issue.message.c_str());
    }
  }
  if (rootUnreadable) {
    for (const tw::ScanIssue& issue : issues)
      if (issue.path == path) std::fprintf(stderr, "tarnwell-scan: %s: %s\n", issue.path.c_str(), issue.message.c_str());
    if (!root->isDirectory() && issues.empty())
      std::fprintf(stderr, "tarnwell-scan: %s: Not a directory\n", path.c_str());
    return 1;
  }
  return 0;
}
