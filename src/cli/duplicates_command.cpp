#include "cli/duplicates_command.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "cli/json_line.h"
#include "platform/paths.h"
#include "store/scan_store.h"
#include "ui/byte_count.h"

namespace tw {

namespace {

constexpr const char* kUsage = "usage: tarnwell-scan [--json] --open FILE --duplicates\n";

int searchSavedScan(const std::string& file, bool json) {
  const auto start = std::chrono::steady_clock::now();
  Error error;
  std::shared_ptr<ScanStore> store = ScanStore::open(file, &error);
  ScanNodeRef root = store ? store->rootNode() : nullptr;
  if (!root) {
    if (store && store->lastReadError()) error = *store->lastReadError();
    std::fprintf(
        stderr, "tarnwell-scan: %s: %s\n", file.c_str(),
        error.description.empty() ? "the saved scan has no root" : error.description.c_str());
    return 1;
  }
  DuplicateSearchFigures figures;
  std::optional<Error> failure;
  Error searchError;
  const std::vector<DuplicateGroup> groups =
      store->duplicateFilesUnderNode(root.get(), nullptr, {}, &searchError, &figures);
  if (!searchError.description.empty()) failure = searchError;
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  uint64_t files = 0, wasted = 0;
  for (const DuplicateGroup& group : groups) {
    files += group.files.size();
    for (std::size_t copy = 1; copy < group.files.size(); ++copy)
      wasted += group.files[copy]->size();
  }
  if (json) {
    JsonLine line;
    line.add("file", file);
    line.add("groups", static_cast<uint64_t>(groups.size()));
    line.add("files", files);
    line.add("wasted_bytes", wasted);
    line.add("candidates", figures.candidates);
    line.add("hashed_files", figures.hashedFiles);
    line.add("hashed_bytes", figures.hashedBytes);
    line.add("cleared_checksums", figures.clearedChecksums);
    line.add("dup_s", seconds);
    std::printf("%s\n", line.text().c_str());
  } else {
    for (const DuplicateGroup& group : groups) {
      std::printf("%s × %zu\n", formatByteCount(group.size).c_str(), group.files.size());
      for (const ScanNodeRef& node : group.files) std::printf("  %s\n", node->path().c_str());
    }
    std::printf("%zu group%s, %llu files, %s in extra copies\n", groups.size(),
                groups.size() == 1 ? "" : "s", static_cast<unsigned long long>(files),
                formatByteCount(wasted).c_str());
  }
  if (failure) {
    std::fprintf(stderr, "tarnwell-scan: %s: %s\n", file.c_str(), failure->description.c_str());
    return 1;
  }
  return 0;
}

}  // namespace

int runDuplicatesCommand(int argc, char** argv) {
  bool duplicates = false, json = false;
  std::string file;
  // Every argument after --trash is a path, whatever it reads.
  for (int i = 1; i < argc && std::string(argv[i]) != "--trash"; ++i)
    duplicates = duplicates || std::string(argv[i]) == "--duplicates";
  if (!duplicates) return -1;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--json") {
      json = true;
    } else if (arg == "--open" && i + 1 < argc && file.empty()) {
      file = argv[++i];
    } else if (arg != "--duplicates") {
      std::fputs(kUsage, stderr);
      return 2;
    }
  }
  if (file.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (file.front() != '/') {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd)) file = appendPathComponent(cwd, file);
  }
  return searchSavedScan(standardizePath(file), json);
}

}  // namespace tw
