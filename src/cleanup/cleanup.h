// Delete Queue and cleanup: the only place where Tarnwell removes anything from a disk, and it
// never deletes. Items the user gathered are checked against the path safety rule as a whole queue
// before anything moves, moved to the Trash in one call, and marked deleted in the saved scan so
// its totals shrink without a rescan; the last cleanup can be undone. These are the steps without
// a window, shared by the scan browser and by `tarnwell-scan --trash`; the queue's widgets and
// sheets build on them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "platform/trash.h"
#include "scan/scan_node.h"

namespace tw {

class ScanStore;
class RealPathCache;

// The safety rule: what may never be moved to the Trash.
struct SafetyRule {
  std::string homeFolder;                   // the user's home folder, never deletable itself
  std::vector<std::string> protectedHomes;  // protected like system folders (pkexec's caller)
  // The rule for this process: $HOME, and the home of PKEXEC_UID when running as root.
  static SafetyRule forThisProcess();
};
// True when `path` may go to the Trash from a scan of `scanRootPath`: both are resolved through
// symbolic links, and the checks run in the documented order.
bool isSafeDeletionPath(std::string_view path, std::string_view scanRootPath,
                        const SafetyRule& rule);
// The same check for many paths of one scan: the root and the homes are resolved once.
class SafetyCheck {
 public:
  SafetyCheck(std::string_view scanRootPath, const SafetyRule& rule);
  bool isSafe(std::string_view path) const;
  // The same with the folders' links resolved through `folders`, shared by a pass over one list.
  bool isSafe(std::string_view path, RealPathCache& folders) const;

 private:
  std::string root_;
  std::vector<std::string> home_;            // as written and resolved
  std::vector<std::string> protectedHomes_;  // likewise
};
// True when the resolved path is a system folder or lies below one (or the protected homes of
// `rule`); disks mounted below "/run/media/" and "/media/" stay usable. Cleanup suggestions skip
// the same paths, so nothing they offer can fail the safety check.
bool isProtectedPath(std::string_view resolvedPath, const SafetyRule& rule);

// Moving: the safety check over every path first, then one Trash call.
struct TrashOutcome {
  enum class Status { Moved, UnsafeItem, TrashFailed };
  Status status = Status::Moved;
  TrashMapping mapping;        // each path as given → where it lies in the Trash (Moved)
  std::string unsafePath;      // the first path that failed the safety check (UnsafeItem)
  std::optional<Error> error;  // the Trash's error (TrashFailed)
};
// Moves `paths` (in queue order) to the Trash. Nothing moves unless every path passes the safety
// check; a link swapped into a parent folder after the check makes the Trash refuse the item.
TrashOutcome moveItemsToTrash(const std::vector<std::string>& paths, std::string_view scanRootPath,
                              const SafetyRule& rule, const TrashOptions& options = {});

// Marking: the moved items found in the saved scan and marked deleted, or an error and nothing
// marked ("One or more files could not be found in the saved scan." when any is missing).
inline constexpr const char* kMovedItemsNotFoundMessage =
    "One or more files could not be found in the saved scan.";
struct MarkOutcome {
  std::vector<ScanNodeRef> markedNodes;
  std::optional<Error> error;
};
MarkOutcome markMovedItems(ScanStore& store, const TrashMapping& mapping);

// Undo: each pair moved back unless something now occupies its original place; the disk only,
// unmarkRestoredItems then gives the saved scan its items back.
struct TrashRestoreOutcome {
  std::vector<std::string> restoredPaths;  // original paths now back in place
  std::vector<std::string> failedNames;    // last path component of each pair that failed
  TrashMapping remaining;                  // the failed pairs, for another Undo
};
TrashRestoreOutcome restoreItems(const TrashMapping& mapping, const TrashOptions& options = {});
// Unmarks the nodes of `markedNodes` whose path is among `restoredPaths` (what restoreItems put
// back); true when there is nothing to unmark.
bool unmarkRestoredItems(ScanStore& store, const std::vector<ScanNodeRef>& markedNodes,
                         const std::vector<std::string>& restoredPaths, Error* error = nullptr);

}  // namespace tw
