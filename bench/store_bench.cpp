// Scan database benchmark: writing a scanned tree against the plain C reference, opening a saved
// scan, loading a 10,000-child folder, memory while browsing, and the subtree queries of the tools
// over the whole scan.
//
// usage: store_bench TREE WORKDIR [ROUNDS]
#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "cli/json_line.h"
#include "scan/directory_scanner.h"
#include "store/scan_store.h"

extern char** environ;

namespace {

using tw::bench::Clock;
using tw::bench::median;
using tw::bench::secondsSince;

// Heap bytes in use: unlike the resident size, it drops when memory is freed for reuse.
uint64_t heapInUseBytes() {
  return mallinfo2().uordblks + mallinfo2().hblkhd;
}

double maximum(const std::vector<double>& values) {
  return *std::max_element(values.begin(), values.end());
}

// Runs the C reference on the rows of `source` and returns its seconds (or -1).
double runReference(const std::string& source, const std::string& destination) {
  const std::string output = destination + ".out";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const char* argv[] = {STORE_BENCH_REFERENCE, source.c_str(), destination.c_str(), nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, STORE_BENCH_REFERENCE, &actions, nullptr, const_cast<char**>(argv),
                  environ) != 0)
    return -1;
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  waitpid(pid, &status, 0);
  std::ifstream in(output);
  std::string line;
  std::getline(in, line);
  const std::size_t at = line.find("\"reference_s\":");
  return at == std::string::npos ? -1 : std::atof(line.c_str() + at + 14);
}

constexpr const char* kWideFolderName = "bench 10000 children";

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: store_bench TREE WORKDIR [ROUNDS]\n");
    return 2;
  }
  const std::string treePath = argv[1];
  const std::string work = argv[2];
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 3;
  const std::string file = work + "/store_bench.sqlite";
  const std::string referenceFile = work + "/store_bench_reference.sqlite";
  tw::JsonLine json;

  // Scan, and add one folder of 10,000 files so the saved scan has a wide folder to load.
  uint64_t rows = 0;
  std::vector<double> writes, references;
  {
    tw::DirectoryScanner scanner({});
    tw::ScanResult result = scanner.scanNow(treePath, 0, nullptr);
    if (!result.root) {
      std::fprintf(stderr, "store_bench: the scan failed\n");
      return 1;
    }
    tw::ScanNode* root = result.root.get();
    tw::ScanNode* wide = root->createNode(kWideFolderName, true);
    for (int i = 0; i < 10000; ++i) {
      tw::ScanNode* child = wide->createNode("child " + std::to_string(i) + ".dat", false);
      child->setSize(4096 * static_cast<uint64_t>(1 + i % 97));
      wide->addChild(child);
    }
    root->addChild(wide);
    std::printf("scanned %s: %llu entries, the whole tree in memory takes %.1f MB of heap\n",
                treePath.c_str(), static_cast<unsigned long long>(result.statistics.itemsVisited),
                heapInUseBytes() / 1e6);
    json.add("scanned_tree_heap_mb", heapInUseBytes() / 1e6);

    for (int round = 0; round < rounds; ++round) {
      // Like the reference, start without a previous file: freeing a large replaced file is
      // the file system's work, not the writer's.
      std::remove(file.c_str());
      sync();
      const auto start = Clock::now();
      tw::Error error;
      if (!tw::ScanStore::writeRootNode(root, file, &error)) {
        std::fprintf(stderr, "store_bench: write failed: %s\n", error.description.c_str());
        return 1;
      }
      writes.push_back(secondsSince(start));
      references.push_back(runReference(file, referenceFile));
      std::printf("round %d: write %.3f s, reference %.3f s\n", round + 1, writes.back(),
                  references.back());
    }
    rows = static_cast<uint64_t>(tw::ScanStore::metadataAt(file)->sourceItemCount);
    std::remove(referenceFile.c_str());
    std::remove((referenceFile + ".out").c_str());
  }
  const double writeSeconds = median(writes), referenceSeconds = median(references);
  std::printf("write median %.3f s, reference median %.3f s, ratio %.3f\n", writeSeconds,
              referenceSeconds, writeSeconds / referenceSeconds);
  json.add("write_s", writeSeconds);
  json.add("reference_s", referenceSeconds);
  json.add("write_ratio", writeSeconds / referenceSeconds);

  // Opening: a fresh store, the root and its children; then the wide folder. Cold rounds first
  // drop the file's pages from the page cache (only this file's, so other work is not disturbed).
  auto evictFile = [&] {
    int fd = ::open(file.c_str(), O_RDONLY);
    if (fd < 0) return;
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    ::close(fd);
  };
  for (bool cold : {true, false}) {
    std::vector<double> opens, wideLoads;
    for (int round = 0; round < 5; ++round) {
      if (cold) evictFile();
      const auto start = Clock::now();
      auto store = tw::ScanStore::open(file);
      tw::ScanNodeRef root = store ? store->rootNode() : nullptr;
      if (!root) return 1;
      const std::size_t children = root->children().size();
      opens.push_back(secondsSince(start));
      tw::ScanNode* wide = nullptr;
      for (tw::ScanNode* child : root->children())
        if (child->name() == kWideFolderName) wide = child;
      const auto wideStart = Clock::now();
      const std::size_t wideChildren = wide ? wide->children().size() : 0;
      wideLoads.push_back(secondsSince(wideStart));
      if (round == 0 && cold)
        std::printf("root has %zu children; the wide folder %zu\n", children, wideChildren);
    }
    const char* kind = cold ? "cold" : "warm";
    std::printf(
        "%s: open+root+children median %.2f ms, max %.2f ms; 10,000-child folder median "
        "%.2f ms, max %.2f ms\n",
        kind, median(opens) * 1e3, maximum(opens) * 1e3, median(wideLoads) * 1e3,
        maximum(wideLoads) * 1e3);
    const std::string prefix = cold ? "cold_" : "warm_";
    json.add(prefix + "open_ms", median(opens) * 1e3);
    json.add(prefix + "open_max_ms", maximum(opens) * 1e3);
    json.add(prefix + "wide_folder_ms", median(wideLoads) * 1e3);
    json.add(prefix + "wide_folder_max_ms", maximum(wideLoads) * 1e3);
  }

  // Memory while browsing: grows with the folders opened, not with the scan.
  const uint64_t heapBefore = heapInUseBytes();
  auto store = tw::ScanStore::open(file);
  tw::ScanNodeRef root = store->rootNode();
  auto level1 = root->children();
  const uint64_t heapRoot = heapInUseBytes();
  std::size_t opened = 0, nodes = level1.size();
  for (tw::ScanNode* child : level1) {
    if (child->name() == kWideFolderName || !child->isDirectory()) continue;
    for (tw::ScanNode* grandchild : child->children()) {
      nodes += 1 + grandchild->children().size();
      ++opened;
      if (opened >= 50) break;
    }
    if (opened >= 50) break;
  }
  const uint64_t heapFolders = heapInUseBytes();
  for (tw::ScanNode* child : level1)
    if (child->name() == kWideFolderName) nodes += child->children().size();
  const uint64_t heapWide = heapInUseBytes();
  std::printf(
      "browsing (heap in use): +%.2f MB after open and the root's children, +%.2f MB after "
      "%zu more folders, +%.2f MB after the 10,000-child folder (%zu nodes in all); the "
      "file holds %llu rows\n",
      (heapRoot - heapBefore) / 1e6, (heapFolders - heapBefore) / 1e6, opened,
      (heapWide - heapBefore) / 1e6, nodes, static_cast<unsigned long long>(rows));
  json.add("browse_root_heap_mb", (heapRoot - heapBefore) / 1e6);
  json.add("browse_folders_heap_mb", (heapFolders - heapBefore) / 1e6);
  json.add("browse_wide_heap_mb", (heapWide - heapBefore) / 1e6);
  json.add("browse_nodes", static_cast<uint64_t>(nodes));

  // Subtree queries over the whole scan.
  auto timeQuery = [&](const char* key, const char* label, auto&& query) {
    const auto start = Clock::now();
    const std::size_t found = query();
    const double seconds = secondsSince(start);
    std::printf("%-34s %8.3f s  (%zu results)\n", label, seconds, found);
    json.add(key, seconds);
  };
  timeQuery("largest_files_s", "largest files (limit 100)",
            [&] { return store->largestFilesUnderNode(root.get(), 100).size(); });
  timeQuery("name_search_s", "name search \"space\" (limit 100)",
            [&] { return store->filesUnderNode(root.get(), "space", 100).size(); });
  timeQuery("wildcard_search_s", "name search \"*.json\" (limit 100)",
            [&] { return store->filesUnderNode(root.get(), "*.json", 100).size(); });
  timeQuery("extension_summary_s", "extension summary",
            [&] { return store->fileExtensionSummaryUnderNode(root.get())->size(); });
  timeQuery("cleanup_candidates_s", "cleanup candidates (limit 100)",
            [&] { return store->cleanupCandidatesUnderNode(root.get(), 100).size(); });
  timeQuery("files_by_extension_s", "files by extension jpg,png (limit 100)", [&] {
    return store->filesUnderNode(root.get(), {"jpg", "png"}, {}, 100).size();
  });
  if (auto error = store->lastReadError())
    std::printf("last read error: %s\n", error->description.c_str());
  json.add("rows", rows);
  std::printf("%s\n", json.text().c_str());
  return 0;
}
