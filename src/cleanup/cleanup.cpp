// Moving items to the Trash, marking them in the saved scan, and Undo.
#include "cleanup/cleanup.h"

#include "store/scan_store.h"

namespace tw {

TrashOutcome moveItemsToTrash(const std::vector<std::string>&, std::string_view, const SafetyRule&,
                              const TrashOptions&) {
  return {};
}

MarkOutcome markMovedItems(ScanStore&, const TrashMapping&) {
  return {};
}

TrashRestoreOutcome restoreItems(const TrashMapping&, const TrashOptions&) {
  return {};
}

}  // namespace tw
