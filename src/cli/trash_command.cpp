// The cleanup of the Delete Queue from the command line: the same safety rule over every item
// first, one Trash call, then the moved items marked in the saved scan so its totals shrink.
#include "cli/trash_command.h"

#include <chrono>
#include <cstdio>

#include "cleanup/cleanup.h"
#include "cli/json_line.h"
#include "store/scan_store.h"

namespace tw {

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void fail(const std::string& subject, const std::string& reason) {
  std::fprintf(stderr, "tarnwell-scan: %s: %s\n", subject.c_str(), reason.c_str());
}

}  // namespace

int trashSavedScanItems(const std::string& file, const std::vector<std::string>& paths, bool json) {
  Error error;
  std::shared_ptr<ScanStore> store = ScanStore::open(file, &error);
  if (!store) {
    fail(file, error.description);
    return 1;
  }
  std::optional<ScanMetadata> metadata = ScanStore::metadataAt(file, &error);
  if (!metadata) {
    fail(file, error.description);
    return 1;
  }

  auto start = std::chrono::steady_clock::now();
  const TrashOutcome moved =
      moveItemsToTrash(paths, metadata->locationPath, SafetyRule::forThisProcess());
  const double trashSeconds = secondsSince(start);
  if (moved.status == TrashOutcome::Status::UnsafeItem) {
    fail(moved.unsafePath, "Deletion stopped: an item failed the safety check.");
    return 1;
  }
  if (moved.status == TrashOutcome::Status::TrashFailed) {
    fail(file, moved.error ? moved.error->description : "the Trash failed");
    return 1;
  }

  start = std::chrono::steady_clock::now();
  const MarkOutcome marked = markMovedItems(*store, moved.mapping);
  const double markSeconds = secondsSince(start);
  uint64_t bytes = 0;
  for (const ScanNodeRef& node : marked.markedNodes) bytes += node->size();

  if (json) {
    JsonLine line;
    line.add("moved", static_cast<uint64_t>(moved.mapping.size()));
    line.add("bytes", bytes);
    line.add("trash_s", trashSeconds);
    line.add("mark_s", markSeconds);
    std::printf("%s\n", line.text().c_str());
  } else {
    for (const auto& [original, trashed] : moved.mapping)
      std::printf("%s → %s\n", original.c_str(), trashed.c_str());
  }
  if (marked.error) {
    fail(file,
         "Files moved, but the saved scan could not be updated: " + marked.error->description);
    return 1;
  }
  return 0;
}

}  // namespace tw
