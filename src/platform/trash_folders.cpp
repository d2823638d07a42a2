#include "platform/trash_folders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/mounted_disks.h"
#include "platform/paths.h"
#include "platform/trash.h"

namespace tw {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

Error reasonError(int code, std::string text) {
  return Error{kPOSIXErrorDomain, code, std::move(text)};
}

std::string quoted(const std::string& path) {
  return "“" + path + "”";
}

// A folder that must be ours: a real folder (not a link) owned by this user.
bool isPrivateFolder(const struct stat& st, const std::string& path, Error* reason) {
  if (S_ISLNK(st.st_mode)) {
    *reason =
        reasonError(ELOOP, "Its disk's trash folder " + quoted(path) + " is a symbolic link.");
  } else if (!S_ISDIR(st.st_mode)) {
    *reason = reasonError(ENOTDIR, "Its disk's trash folder " + quoted(path) + " is not a folder.");
  } else if (st.st_uid != geteuid()) {
    *reason =
        reasonError(EPERM, "Its disk's trash folder " + quoted(path) + " belongs to another user.");
  } else {
    return true;
  }
  return false;
}

// This user's folder `name` inside `dirFd`: created 0700 when missing, then checked before and
// after opening it (so a folder swapped in between is noticed), and made private again when
// others could write to it. -1 with the reason.
int openPrivateFolder(const TrashCalls& calls, int dirFd, const std::string& name,
                      const std::string& path, Error* reason) {
  if (mkdirat(dirFd, name.c_str(), 0700) != 0 && errno != EEXIST) {
    *reason =
        reasonError(errno, "Its disk's trash folder " + quoted(path) + " could not be created (" +
                               posixError(errno).description + ").");
    return -1;
  }
  struct stat before {};
  if (fstatat(dirFd, name.c_str(), &before, AT_SYMLINK_NOFOLLOW) != 0) {
    *reason =
        reasonError(errno, "Its disk's trash folder " + quoted(path) + " could not be examined (" +
                               posixError(errno).description + ").");
    return -1;
  }
  if (!isPrivateFolder(before, path, reason)) return -1;
  const int fd = calls.openat(dirFd, name.c_str(), kFolderFlags, 0);
  if (fd < 0) {
    *reason =
        reasonError(errno, "Its disk's trash folder " + quoted(path) + " could not be opened (" +
                               posixError(errno).description + ").");
    return -1;
  }
  struct stat after {};
  if (fstat(fd, &after) != 0 || after.st_ino != before.st_ino || after.st_dev != before.st_dev) {
    *reason = reasonError(
        EAGAIN, "Its disk's trash folder " + quoted(path) + " changed while it was being checked.");
    close(fd);
    return -1;
  }
  if (!isPrivateFolder(after, path, reason)) {
    close(fd);
    return -1;
  }
  // On a file system without Unix permissions (FAT) this changes nothing, and every user can
  // write everything there anyway.
  if (after.st_mode & (S_IWGRP | S_IWOTH)) fchmod(fd, 0700);
  return fd;
}

// The nearest folder of `path` (itself or an ancestor) that exists.
std::optional<FileSystemPlace> placeOfNearestExisting(std::string path) {
  for (;;) {
    if (auto place = placeOf(AT_FDCWD, path.c_str(), 0)) return place;
    if (path.empty() || path == "/") return std::nullopt;
    path = parentPath(path);
  }
}

// mkdir -p, new folders private to the user.
bool makeFolders(const std::string& path) {
  struct stat st {};
  if (path.empty() || stat(path.c_str(), &st) == 0) return true;
  if (errno != ENOENT || !makeFolders(parentPath(path))) return false;
  return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}

}  // namespace

std::optional<FileSystemPlace> placeOf(int dirFd, const char* name, int flags) {
  struct statx st {};
  if (statx(dirFd, name, flags | AT_NO_AUTOMOUNT, STATX_MNT_ID, &st) != 0) return std::nullopt;
  return FileSystemPlace{makedev(st.stx_dev_major, st.stx_dev_minor),
                         (st.stx_mask & STATX_MNT_ID) ? st.stx_mnt_id : 0};
}

bool isSamePlace(const FileSystemPlace& a, const FileSystemPlace& b) {
  return a.device == b.device && (a.mountID == 0 || b.mountID == 0 || a.mountID == b.mountID);
}

std::string homeTrashPath(const std::string& configured) {
  if (!configured.empty()) return standardizePath(configured);
  // A relative $XDG_DATA_HOME is invalid and ignored.
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  if (dataHome && dataHome[0] == '/') return appendPathComponent(dataHome, "Trash");
  return appendPathComponent(homeDirectory(), ".local/share/Trash");
}

TrashFolders::TrashFolders(std::string homeTrash, const TrashCalls& calls)
    : homeTrash_(std::move(homeTrash)), calls_(calls) {}

TrashFolders::~TrashFolders() {
  for (const auto& folder : folders_) {
    for (int fd : {folder->folderFd, folder->filesFd, folder->infoFd})
      if (fd >= 0) close(fd);
  }
}

std::vector<TrashFolder*> TrashFolders::used() const {
  std::vector<TrashFolder*> out;
  for (const auto& folder : folders_) out.push_back(folder.get());
  return out;
}

TrashFolder* TrashFolders::forItem(const std::string& parentPath, const FileSystemPlace& place,
                                   Error* reason) {
  for (const auto& [known, folder] : byPlace_)
    if (isSamePlace(known, place)) return folder;
  std::unique_ptr<TrashFolder> folder;
  // Where the home trash is (or would be made): the device of its nearest existing folder.
  if (!homePlace_) homePlace_ = placeOfNearestExisting(homeTrash_);
  if (homePlace_ && isSamePlace(*homePlace_, place)) {
    folder = openHomeTrash(reason);
    if (!folder) return nullptr;
    homePlace_ = folder->place;
    if (!isSamePlace(folder->place, place)) {
      // It turned out to lie elsewhere: keep it for items there, and look further.
      byPlace_.emplace_back(folder->place, folder.get());
      folders_.push_back(std::move(folder));
    }
  }
  if (!folder) {
    folder = openMountTrash(topOfMount(parentPath, place), place, reason);
    if (!folder) return nullptr;
  }
  byPlace_.emplace_back(place, folder.get());
  folders_.push_back(std::move(folder));
  return folders_.back().get();
}

std::unique_ptr<TrashFolder> TrashFolders::openHomeTrash(Error* reason) {
  auto folder = std::make_unique<TrashFolder>();
  folder->path = homeTrash_;
  std::optional<FileSystemPlace> place;
  if (!makeFolders(homeTrash_) ||
      (folder->folderFd = calls_.openat(AT_FDCWD, homeTrash_.c_str(),
                                        O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0)) < 0 ||
      !(place = placeOf(folder->folderFd, "", AT_EMPTY_PATH))) {
    *reason =
        reasonError(errno, "The Trash folder " + quoted(homeTrash_) + " could not be made ready (" +
                               posixError(errno).description + ").");
    if (folder->folderFd >= 0) close(folder->folderFd);
    return nullptr;
  }
  folder->place = *place;
  if (!openFilesAndInfo(*folder, reason)) return nullptr;
  return folder;
}

std::unique_ptr<TrashFolder> TrashFolders::openMountTrash(const std::string& topdir,
                                                          const FileSystemPlace& place,
                                                          Error* reason) {
  const int top = calls_.openat(AT_FDCWD, topdir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC, 0);
  if (top < 0) {
    *reason =
        reasonError(errno, "The top folder of its disk, " + quoted(topdir) +
                               ", could not be opened (" + posixError(errno).description + ").");
    return nullptr;
  }
  auto folder = std::make_unique<TrashFolder>();
  folder->topdir = topdir;
  const std::string uid = std::to_string(geteuid());
  // A shared ".Trash" counts only as a real folder with the sticky bit; otherwise it is skipped.
  struct stat shared {};
  int sharedFd = -1;
  if (fstatat(top, ".Trash", &shared, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(shared.st_mode) &&
      (shared.st_mode & S_ISVTX) &&
      (sharedFd = calls_.openat(top, ".Trash", O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0)) >=
          0) {
    folder->path = appendPathComponent(appendPathComponent(topdir, ".Trash"), uid);
    folder->folderFd = openPrivateFolder(calls_, sharedFd, uid, folder->path, reason);
    close(sharedFd);
  } else {
    folder->path = appendPathComponent(topdir, ".Trash-" + uid);
    folder->folderFd = openPrivateFolder(calls_, top, ".Trash-" + uid, folder->path, reason);
  }
  close(top);
  if (folder->folderFd < 0) return nullptr;
  const std::optional<FileSystemPlace> actual = placeOf(folder->folderFd, "", AT_EMPTY_PATH);
  if (!actual || !isSamePlace(*actual, place)) {
    close(folder->folderFd);
    *reason = reasonError(
        EXDEV, "Its disk's trash folder " + quoted(folder->path) + " is on another disk.");
    return nullptr;
  }
  folder->place = *actual;
  if (!openFilesAndInfo(*folder, reason)) return nullptr;
  return folder;
}

bool TrashFolders::openFilesAndInfo(TrashFolder& folder, Error* reason) {
  for (auto [name, fd] : {std::pair{"files", &folder.filesFd}, std::pair{"info", &folder.infoFd}}) {
    if (mkdirat(folder.folderFd, name, 0700) != 0 && errno != EEXIST) break;
    *fd = calls_.openat(folder.folderFd, name, kFolderFlags, 0);
    if (*fd < 0) break;
  }
  if (folder.filesFd >= 0 && folder.infoFd >= 0) return true;
  *reason =
      reasonError(errno, "The trash folder " + quoted(folder.path) + " could not be made ready (" +
                             posixError(errno).description + ").");
  for (int fd : {folder.folderFd, folder.filesFd, folder.infoFd})
    if (fd >= 0) close(fd);
  return false;
}

std::string TrashFolders::topOfMount(const std::string& parentPath, const FileSystemPlace& place) {
  // The mount table names the top folder; it is trusted only when it is on the way to the item
  // and really is that mount.
  if (place.mountID != 0) {
    if (!mountInfo_) mountInfo_ = readMountInfo();
    const std::string top = mountPointOfMount(*mountInfo_, place.mountID);
    if (!top.empty() && (top == "/" || isSameOrInside(parentPath, top))) {
      const std::optional<FileSystemPlace> topPlace = placeOf(AT_FDCWD, top.c_str(), 0);
      if (topPlace && isSamePlace(*topPlace, place)) return top;
    }
  }
  // A chroot's or container's mount table may not list the mount: walk up while the device (and
  // mount) stays the same.
  std::string top = parentPath;
  while (top != "/") {
    const std::string up = tw::parentPath(top);
    const std::optional<FileSystemPlace> upPlace = placeOf(AT_FDCWD, up.c_str(), 0);
    if (!upPlace || !isSamePlace(*upPlace, place)) break;
    top = up;
  }
  return top;
}

}  // namespace tw
