// The trash folders of one move: the home trash for items on its own mount, else the trash at
// the top of the item's mount ($topdir/.Trash/$uid or $topdir/.Trash-$uid). Each folder is found,
// created when missing and checked once, then kept open for the moves.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"

namespace tw {

struct TrashCalls;

// The file system and mount an item lies on; `mountID` is 0 when the kernel does not say.
struct FileSystemPlace {
  uint64_t device = 0;
  uint64_t mountID = 0;
};
// The same device, and the same mount when both mounts are known (a rename cannot cross mounts,
// even bind mounts of one device).
bool isSamePlace(const FileSystemPlace& a, const FileSystemPlace& b);

// The place of `name` in folder `dirFd` (statx flags, e.g. AT_SYMLINK_NOFOLLOW; "" with
// AT_EMPTY_PATH for `dirFd` itself).
std::optional<FileSystemPlace> placeOf(int dirFd, const char* name, int flags);

// The home trash: `configured`, else $XDG_DATA_HOME/Trash, else ~/.local/share/Trash.
std::string homeTrashPath(const std::string& configured);

// One trash folder, open (and checked) for the moves.
struct TrashFolder {
  std::string path;    // the folder holding files/ and info/
  std::string topdir;  // "" for the home trash, whose Path= lines are absolute
  FileSystemPlace place;
  int folderFd = -1, filesFd = -1, infoFd = -1;
};

class TrashFolders {
 public:
  TrashFolders(std::string homeTrash, const TrashCalls& calls);
  ~TrashFolders();
  TrashFolders(const TrashFolders&) = delete;
  TrashFolders& operator=(const TrashFolders&) = delete;

  // Finding: the trash for an item in folder `parentPath` lying on `place`, made ready on first
  // use; null with the reason (a sentence about the folder, not the item) when none may be used.
  TrashFolder* forItem(const std::string& parentPath, const FileSystemPlace& place, Error* reason);
  // The folders made ready so far.
  std::vector<TrashFolder*> used() const;

 private:
  std::unique_ptr<TrashFolder> openHomeTrash(Error* reason);
  std::unique_ptr<TrashFolder> openMountTrash(const std::string& topdir,
                                              const FileSystemPlace& place, Error* reason);
  std::string topOfMount(const std::string& parentPath, const FileSystemPlace& place);
  bool openFilesAndInfo(TrashFolder& folder, Error* reason);

  std::string homeTrash_;
  const TrashCalls& calls_;
  std::optional<FileSystemPlace> homePlace_;
  std::optional<std::string> mountInfo_;
  std::vector<std::unique_ptr<TrashFolder>> folders_;
  std::vector<std::pair<FileSystemPlace, TrashFolder*>> byPlace_;
};

}  // namespace tw
