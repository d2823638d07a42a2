// Cleanup benchmark on a saved scan: COUNT files spread over the whole scan go to the Trash and
// are marked deleted in the scan database (the Delete button), then come back and are unmarked
// (Undo Cleanup). Prints one JSON line of figures; the tree and the scan end as they began.
//
// usage: cleanup_bench SCAN_DATABASE HOME_TRASH [COUNT]
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "cleanup/cleanup.h"
#include "cli/json_line.h"
#include "store/scan_store.h"

namespace {

using tw::bench::Clock;
using tw::bench::secondsSince;

// CPU seconds of the process so far: on a shared machine, what the wall clock cannot tell apart
// from waiting for a core.
double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

constexpr const char* kFiles =
    "FROM items WHERE is_deleted=0 AND is_directory=0 AND is_aggregate=0 AND is_virtual=0 AND "
    "size>0";

// `count` file paths evenly spread over the scan in write order (so over all its folders).
std::vector<std::string> spreadFiles(const std::string& database, uint64_t count) {
  std::vector<std::string> paths;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
    return paths;
  sqlite3_stmt* statement = nullptr;
  uint64_t files = 0;
  sqlite3_prepare_v2(db, (std::string("SELECT COUNT(*) ") + kFiles).c_str(), -1, &statement,
                     nullptr);
  if (sqlite3_step(statement) == SQLITE_ROW) files = sqlite3_column_int64(statement, 0);
  sqlite3_finalize(statement);
  const uint64_t step = count ? std::max<uint64_t>(1, files / count) : 1;
  sqlite3_prepare_v2(db, (std::string("SELECT path ") + kFiles + " ORDER BY id").c_str(), -1,
                     &statement, nullptr);
  for (uint64_t row = 0; paths.size() < count && sqlite3_step(statement) == SQLITE_ROW; ++row)
    if (row % step == 0)
      paths.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)),
                         sqlite3_column_bytes(statement, 0));
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return paths;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: cleanup_bench SCAN_DATABASE HOME_TRASH [COUNT]\n", stderr);
    return 2;
  }
  const std::string database = argv[1];
  tw::TrashOptions options;
  options.homeTrash = argv[2];
  const uint64_t count = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 10000;

  tw::Error error;
  std::shared_ptr<tw::ScanStore> store = tw::ScanStore::open(database, &error);
  if (!store) {
    std::fprintf(stderr, "cleanup_bench: %s\n", error.description.c_str());
    return 1;
  }
  const std::optional<tw::ScanMetadata> before = tw::ScanStore::metadataAt(database);
  const std::vector<std::string> paths = spreadFiles(database, count);

  // The Delete button: safety over the whole list, one Trash call, marking.
  double cpu = cpuSeconds();
  auto start = Clock::now();
  const tw::TrashOutcome moved =
      tw::moveItemsToTrash(paths, before->locationPath, tw::SafetyRule::forThisProcess(), options);
  const double trashSeconds = secondsSince(start);
  const double trashCpu = cpuSeconds() - cpu;
  if (moved.status != tw::TrashOutcome::Status::Moved) {
    std::fprintf(
        stderr, "cleanup_bench: %s\n",
        moved.error ? moved.error->description.c_str() : ("unsafe: " + moved.unsafePath).c_str());
    return 1;
  }
  cpu = cpuSeconds();
  start = Clock::now();
  const tw::MarkOutcome marked = tw::markMovedItems(*store, moved.mapping);
  const double markSeconds = secondsSince(start);
  const double markCpu = cpuSeconds() - cpu;
  if (marked.error) std::fprintf(stderr, "cleanup_bench: %s\n", marked.error->description.c_str());
  const std::optional<tw::ScanMetadata> after = tw::ScanStore::metadataAt(database);

  // Undo Cleanup: everything back, then unmarked.
  cpu = cpuSeconds();
  start = Clock::now();
  const tw::TrashRestoreOutcome restored = tw::restoreItems(moved.mapping, options);
  const double restoreSeconds = secondsSince(start);
  const double restoreCpu = cpuSeconds() - cpu;
  cpu = cpuSeconds();
  start = Clock::now();
  const bool unmarked =
      tw::unmarkRestoredItems(*store, marked.markedNodes, restored.restoredPaths, &error);
  const double unmarkSeconds = secondsSince(start);
  const double unmarkCpu = cpuSeconds() - cpu;
  if (!unmarked) std::fprintf(stderr, "cleanup_bench: %s\n", error.description.c_str());
  const std::optional<tw::ScanMetadata> undone = tw::ScanStore::metadataAt(database);

  tw::JsonLine line;
  line.add("rows", static_cast<uint64_t>(before->sourceItemCount));
  line.add("moved", static_cast<uint64_t>(moved.mapping.size()));
  line.add("marked", static_cast<uint64_t>(marked.markedNodes.size()));
  line.add("bytes", before->logicalSize - after->logicalSize);
  line.add("trash_s", trashSeconds);
  line.add("mark_s", markSeconds);
  line.add("delete_s", trashSeconds + markSeconds);
  line.add("restored", static_cast<uint64_t>(restored.restoredPaths.size()));
  line.add("restore_s", restoreSeconds);
  line.add("unmark_s", unmarkSeconds);
  line.add("undo_s", restoreSeconds + unmarkSeconds);
  line.add("trash_cpu_s", trashCpu);
  line.add("mark_cpu_s", markCpu);
  line.add("restore_cpu_s", restoreCpu);
  line.add("unmark_cpu_s", unmarkCpu);
  line.add("size_back",
           std::string_view(undone->logicalSize == before->logicalSize ? "yes" : "no"));
  std::printf("%s\n", line.text().c_str());
  return marked.error || !unmarked || !restored.failedNames.empty() ? 1 : 0;
}
