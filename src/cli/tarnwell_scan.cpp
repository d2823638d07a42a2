// tarnwell-scan: the headless companion. Scans a folder or disk with the same engine as the app and
// prints the root's children largest first, the scan issues, and with --json one line of figures.
// It can save the scan as a scan database (-o), show a saved scan without rescanning (--open), and
// move items of a saved scan to the Trash, marking them in it (--open FILE --trash PATH…).
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "cli/duplicates_command.h"
#include "cli/json_line.h"
#include "cli/trash_command.h"
#include "platform/paths.h"
#include "scan/directory_scanner.h"
#include "store/scan_store.h"
#include "ui/byte_count.h"

namespace {

constexpr const char* kUsage =
    "usage: tarnwell-scan [--threads N] [--json] [-o FILE] PATH\n"
    "       tarnwell-scan [--json] --open FILE\n"
    "       tarnwell-scan [--json] --open FILE --duplicates\n"
    "       tarnwell-scan [--json] --open FILE --trash PATH...\n"
    "  --threads N  threads making system calls, the walk included (default 2)\n"
    "  --json       print one JSON line of figures instead of the listing\n"
    "  -o FILE      save the scan as a scan database in FILE\n"
    "  --open FILE  show a saved scan database without scanning\n"
    "  --duplicates list files of equal contents in the saved scan, largest first\n"
    "  --trash PATH...  move these items of the saved scan to the Trash and mark them deleted in\n"
    "               it (every argument after --trash is a path)\n";

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

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string absolutePath(std::string path) {
  if (!path.empty() && path.front() != '/') {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd)) path = tw::appendPathComponent(cwd, path);
  }
  return tw::standardizePath(path);
}

std::string fingerprintText(uint64_t fingerprint) {
  char hex[32];
  std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(fingerprint));
  return hex;
}

void printChildren(tw::ScanNode* root) {
  std::printf("%s  %s\n", tw::formatByteCount(root->size()).c_str(),
              std::string(root->name()).c_str());
  for (tw::ScanNode* child : root->children()) {
    const bool folder = child->isDirectory() && !child->isAggregate();
    std::printf("%12s  %s%s\n", tw::formatByteCount(child->size()).c_str(),
                std::string(child->name()).c_str(), folder ? "/" : "");
  }
}

// Shows a saved scan: the root's children and the metadata, read lazily from the file.
int openSavedScan(const std::string& file, bool json) {
  const uint64_t baselineRss = currentRssBytes();
  const auto start = std::chrono::steady_clock::now();
  tw::Error error;
  std::shared_ptr<tw::ScanStore> store = tw::ScanStore::open(file, &error);
  if (!store) {
    std::fprintf(stderr, "tarnwell-scan: %s: %s\n", file.c_str(), error.description.c_str());
    return 1;
  }
  tw::ScanNodeRef root = store->rootNode();
  // Reading the root or its children may fail half-way; a partial listing is not a success.
  std::optional<tw::Error> readError = store->lastReadError();
  const std::size_t childCount = root ? root->children().size() : 0;
  if (!readError) readError = store->lastReadError();
  if (!root || readError) {
    std::fprintf(stderr, "tarnwell-scan: %s: %s\n", file.c_str(),
                 readError ? readError->description.c_str() : "the saved scan has no root");
    return 1;
  }
  const double openSeconds = secondsSince(start);
  if (json) {
    tw::JsonLine line;
    line.add("file", file);
    line.add("path", root->path());
    line.add("children", static_cast<uint64_t>(childCount));
    line.add("bytes", root->size());
    line.add("fingerprint", fingerprintText(root->sourceFingerprint()));
    line.add("items", static_cast<uint64_t>(root->sourceItemCount()));
    line.add("issues", static_cast<uint64_t>(root->scanIssues().size()));
    line.add("scan_date", root->scanDate());
    line.add("open_s", openSeconds);
    line.add("baseline_rss_bytes", baselineRss);
    line.add("peak_rss_bytes", peakRssBytes());
    std::printf("%s\n", line.text().c_str());
    return 0;
  }
  printChildren(root.get());
  const auto scanDate = static_cast<time_t>(root->scanDate());
  char dateText[64] = "";
  std::strftime(dateText, sizeof dateText, "%Y-%m-%d %H:%M:%S UTC", std::gmtime(&scanDate));
  std::printf("\nLocation: %s\nScanned: %s\nItems: %lld\nFingerprint: %s\n", root->path().c_str(),
              dateText, static_cast<long long>(root->sourceItemCount()),
              fingerprintText(root->sourceFingerprint()).c_str());
  if (root->volumeCapacity())
    std::printf("Volume: %s capacity, %s available\n",
                tw::formatByteCount(root->volumeCapacity()).c_str(),
                tw::formatByteCount(root->volumeAvailableSpace()).c_str());
  if (!root->scanIssues().empty()) std::printf("Scan issues: %zu\n", root->scanIssues().size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (const int status = tw::runDuplicatesCommand(argc, argv); status >= 0) return status;
  int threads = 2;
  bool json = false;
  std::string path;
  std::string outputFile;
  std::string openFile;
  std::vector<std::string> trashPaths;
  bool trash = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--json") {
      json = true;
    } else if (arg == "-o" && i + 1 < argc) {
      outputFile = argv[++i];
    } else if (arg == "--open" && i + 1 < argc) {
      openFile = argv[++i];
    } else if (arg == "--trash") {
      // Every argument after it is a path, even one that starts with "-".
      trash = true;
      for (++i; i < argc; ++i) trashPaths.push_back(absolutePath(argv[i]));
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
  if (trash && (openFile.empty() || trashPaths.empty())) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (!openFile.empty()) {
    if (!path.empty() || !outputFile.empty()) {
      std::fputs(kUsage, stderr);
      return 2;
    }
    if (trash) return tw::trashSavedScanItems(absolutePath(openFile), trashPaths, json);
    return openSavedScan(absolutePath(openFile), json);
  }
  if (path.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  path = absolutePath(path);

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

  double writeSeconds = 0;
  if (!outputFile.empty()) {
    const auto start = std::chrono::steady_clock::now();
    tw::Error error;
    if (!tw::ScanStore::writeRootNode(root, absolutePath(outputFile), &error)) {
      const std::string reason =
          error.description.empty() ? "the scan could not be saved" : error.description;
      std::fprintf(stderr, "tarnwell-scan: %s: %s\n", outputFile.c_str(), reason.c_str());
      return 1;
    }
    writeSeconds = secondsSince(start);
  }

  if (json) {
    tw::JsonLine line;
    line.add("path", path);
    line.add("entries", result.statistics.itemsVisited);
    line.add("nodes", countNodes(root));
    line.add("bytes", root->size());
    line.add("fingerprint", fingerprintText(root->sourceFingerprint()));
    line.add("items", static_cast<uint64_t>(root->sourceItemCount()));
    line.add("issues", static_cast<uint64_t>(issues.size()));
    line.add("walk_s", result.statistics.walkSeconds);
    line.add("sort_s", result.statistics.sortSeconds);
    if (!outputFile.empty()) line.add("write_s", writeSeconds);
    line.add("threads", static_cast<uint64_t>(threads));
    line.add("baseline_rss_bytes", baselineRss);
    line.add("peak_rss_bytes", peakRssBytes());
    std::printf("%s\n", line.text().c_str());
  } else {
    printChildren(root);
    if (!issues.empty()) {
      std::printf("\n%zu scan issue%s:\n", issues.size(), issues.size() == 1 ? "" : "s");
      for (const tw::ScanIssue& issue : issues)
        std::printf("  %s: %s\n", issue.path.c_str(), issue.message.c_str());
    }
  }
  if (rootUnreadable) {
    for (const tw::ScanIssue& issue : issues)
      if (issue.path == path)
        std::fprintf(stderr, "tarnwell-scan: %s: %s\n", issue.path.c_str(), issue.message.c_str());
    if (!root->isDirectory() && issues.empty())
      std::fprintf(stderr, "tarnwell-scan: %s: Not a directory\n", path.c_str());
    return 1;
  }
  return 0;
}
