// Moving items to the Trash, marking them in the saved scan, and Undo.
#include "cleanup/cleanup.h"

#include <sys/stat.h>

#include <cerrno>
#include <unordered_set>

#include "platform/paths.h"
#include "store/scan_store.h"

namespace tw {

TrashOutcome moveItemsToTrash(const std::vector<std::string>& paths, std::string_view scanRootPath,
                              const SafetyRule& rule, const TrashOptions& options) {
  TrashOutcome outcome;
  // The whole queue passes before anything moves.
  const SafetyCheck check(scanRootPath, rule);
  for (const std::string& path : paths) {
    if (check.isSafe(path)) continue;
    outcome.status = TrashOutcome::Status::UnsafeItem;
    outcome.unsafePath = path;
    return outcome;
  }
  Error error;
  std::optional<TrashMapping> mapping = moveToTrash(paths, options, &error);
  if (!mapping) {
    outcome.status = TrashOutcome::Status::TrashFailed;
    outcome.error = std::move(error);
    return outcome;
  }
  outcome.mapping = std::move(*mapping);
  return outcome;
}

MarkOutcome markMovedItems(ScanStore& store, const TrashMapping& mapping) {
  MarkOutcome outcome;
  std::vector<ScanNodeRef> found;
  found.reserve(mapping.size());
  bool missing = false;
  for (const auto& [original, trashed] : mapping) {
    if (original.empty()) continue;
    if (ScanNodeRef node = store.nodeAtPath(standardizePath(original)))
      found.push_back(std::move(node));
    else
      missing = true;
  }
  if (missing) {
    outcome.error = Error{kSQLiteErrorDomain, 1, kMovedItemsNotFoundMessage};
    return outcome;
  }
  std::vector<ScanNode*> nodes;
  nodes.reserve(found.size());
  for (const ScanNodeRef& node : found) nodes.push_back(node.get());
  Error error;
  if (!store.setNodes(nodes, true, &error)) {
    outcome.error = std::move(error);
    return outcome;
  }
  outcome.markedNodes = std::move(found);
  return outcome;
}

TrashRestoreOutcome restoreItems(const TrashMapping& mapping, const TrashOptions& options) {
  TrashRestoreOutcome outcome;
  for (const auto& pair : mapping) {
    const auto& [original, trashed] = pair;
    struct stat st {};
    // Nothing is overwritten: an item put at the original place since wins.
    bool restored = ::lstat(original.c_str(), &st) != 0 && errno == ENOENT;
    if (restored) {
      Error error;
      restored = restoreFromTrash(trashed, original, options, &error);
    }
    if (restored) {
      outcome.restoredPaths.push_back(standardizePath(original));
      continue;
    }
    outcome.failedNames.emplace_back(displayNameForPath(original));
    outcome.remaining.push_back(pair);
  }
  return outcome;
}

bool unmarkRestoredItems(ScanStore& store, const std::vector<ScanNodeRef>& markedNodes,
                         const std::vector<std::string>& restoredPaths, Error* error) {
  const std::unordered_set<std::string> restored(restoredPaths.begin(), restoredPaths.end());
  std::vector<ScanNode*> nodes;
  for (const ScanNodeRef& node : markedNodes)
    if (node && restored.count(standardizePath(node->path())) != 0) nodes.push_back(node.get());
  return store.setNodes(nodes, false, error);
}

}  // namespace tw
