// Moving items to the Trash, marking them in the saved scan, and Undo.
#include "cleanup/cleanup.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <unordered_set>

#include "platform/paths.h"
#include "platform/real_path_cache.h"
#include "store/scan_store.h"

namespace tw {

namespace {

// `path` with its folder's links resolved; as it is when the folder cannot be resolved.
std::string withRealFolder(const std::string& path, RealPathCache& folders) {
  const std::string standardized = standardizePath(path);
  const std::string folder = parentPath(standardized);
  if (folder.empty() || folder == standardized) return path;
  const std::optional<std::string> real = folders.resolve(folder);
  if (!real) return path;
  return appendPathComponent(*real, displayNameForPath(standardized));
}

}  // namespace

TrashOutcome moveItemsToTrash(const std::vector<std::string>& paths, std::string_view scanRootPath,
                              const SafetyRule& rule, const TrashOptions& options) {
  TrashOutcome outcome;
  // The whole queue passes before anything moves.
  const SafetyCheck check(scanRootPath, rule);
  RealPathCache folders;
  for (const std::string& path : paths) {
    if (check.isSafe(path, folders)) continue;
    outcome.status = TrashOutcome::Status::UnsafeItem;
    outcome.unsafePath = path;
    return outcome;
  }
  // A scan made through a link to its folder keeps the link in every path; the Trash walks to each
  // item without following links, so it is given the folders as they really are. A link swapped
  // in after this still makes the Trash refuse the item.
  std::vector<std::string> realPaths;
  realPaths.reserve(paths.size());
  for (const std::string& path : paths) realPaths.push_back(withRealFolder(path, folders));
  Error error;
  std::optional<TrashMapping> mapping = moveToTrash(realPaths, options, &error);
  if (!mapping) {
    outcome.status = TrashOutcome::Status::TrashFailed;
    outcome.error = std::move(error);
    return outcome;
  }
  // The pairs come back in the order given; each is keyed by the path as the queue holds it.
  for (std::size_t i = 0; i < mapping->size() && i < paths.size(); ++i)
    if ((*mapping)[i].first == realPaths[i]) (*mapping)[i].first = paths[i];
  outcome.mapping = std::move(*mapping);
  return outcome;
}

MarkOutcome markMovedItems(ScanStore& store, const TrashMapping& mapping) {
  MarkOutcome outcome;
  std::vector<std::string> originals;
  originals.reserve(mapping.size());
  for (const auto& [original, trashed] : mapping)
    if (!original.empty()) originals.push_back(standardizePath(original));
  std::vector<ScanNodeRef> found = store.nodesAtPaths(originals);
  if (std::find(found.begin(), found.end(), nullptr) != found.end()) {
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
  TrashRestorer restorer(options);
  for (const auto& pair : mapping) {
    const auto& [original, trashed] = pair;
    struct stat st {};
    // Nothing is overwritten: an item put at the original place since wins.
    bool restored = ::lstat(original.c_str(), &st) != 0 && errno == ENOENT;
    if (restored) {
      Error error;
      restored = restorer.restore(trashed, original, &error);
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
