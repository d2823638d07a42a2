// The Trash: moving items to the freedesktop.org Trash and back, without ever copying or deleting.
//
// Items go to the home trash ($XDG_DATA_HOME/Trash) when they lie on its device, otherwise to the
// trash of their own mount ($topdir/.Trash/$uid under a sticky, non-link ".Trash", else
// $topdir/.Trash-$uid). Every item's trash folder is found and checked before the first move, so a
// call either starts knowing all of its destinations or fails without touching anything. Each move
// writes info/NAME.trashinfo first (O_EXCL) and then renames the item into files/ with
// RENAME_NOREPLACE, relative to its parent folder opened without following links. A move that fails
// half-way puts the items already moved back, so the call is all-or-nothing. Other freedesktop
// tools list and restore what is trashed here.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"

namespace tw {

// The system calls through which the Trash changes the file system, so a test can make the n-th
// rename fail and check that nothing is lost.
struct TrashCalls {
  int (*renameat2)(int fromDir, const char* from, int toDir, const char* to, unsigned flags);
  int (*openat)(int dir, const char* path, int flags, mode_t mode);
  int (*unlinkat)(int dir, const char* path, int flags);

  // The real calls.
  static const TrashCalls& system();
};

// Where the trash lives and how it is reached; tests give their own.
struct TrashOptions {
  // The home trash; empty: $XDG_DATA_HOME/Trash (~/.local/share/Trash).
  std::string homeTrash;
  const TrashCalls* calls = nullptr;  // null: TrashCalls::system()
};

// One item moved: the path as given, byte for byte, and where it now lies in the trash.
using TrashMapping = std::vector<std::pair<std::string, std::string>>;

// Interface grouped by purpose.
// Moving: every path (absolute, no symbolic link among its parent folders) goes to its trash in
// one call. Returns the mapping in the order given, or one error naming the item that failed; on
// an error nothing is left moved.
std::optional<TrashMapping> moveToTrash(const std::vector<std::string>& paths,
                                        const TrashOptions& options, Error* error);
// Restoring: puts `trashedPath` back at `originalPath` without overwriting anything and without
// creating missing folders, then removes its .trashinfo.
bool restoreFromTrash(const std::string& trashedPath, const std::string& originalPath,
                      const TrashOptions& options, Error* error);
// The same for many items in a row: the folders on the way and the trash folders are opened once
// for all of them (without following links, as for one) and kept open while it lives.
class TrashRestorer {
 public:
  explicit TrashRestorer(const TrashOptions& options);
  ~TrashRestorer();
  TrashRestorer(const TrashRestorer&) = delete;
  TrashRestorer& operator=(const TrashRestorer&) = delete;
  bool restore(const std::string& trashedPath, const std::string& originalPath, Error* error);

 private:
  struct Folders;
  std::unique_ptr<Folders> folders_;
};
// Locations: the home trash's "files" folder, for "View Trash".
std::string homeTrashFilesFolder(const TrashOptions& options = {});

}  // namespace tw
