#include "platform/trash.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <unordered_set>

#include "platform/folder_walk.h"
#include "platform/paths.h"
#include "platform/trash_folders.h"
#include "platform/trash_info.h"

namespace tw {

namespace {

// Folders kept open while a call moves its items; far below any descriptor limit.
constexpr std::size_t kOpenFolders = 256;
// A trash name and its ".trashinfo" must fit NAME_MAX with a ".NNNNN" to make it unique.
constexpr std::size_t kMaxTrashNameBytes = 255 - 10 - 6;
constexpr unsigned kMaxNameAttempts = 99999;

int systemRename(int fromDir, const char* from, int toDir, const char* to, unsigned flags) {
  return ::renameat2(fromDir, from, toDir, to, flags);
}
int systemOpen(int dir, const char* path, int flags, mode_t mode) {
  return ::openat(dir, path, flags, mode);
}
int systemUnlink(int dir, const char* path, int flags) {
  return ::unlinkat(dir, path, flags);
}

std::string quoted(std::string_view text) {
  return "“" + std::string(text) + "”";
}

Error moveError(std::string_view name, int code, const std::string& reason) {
  return Error{kPOSIXErrorDomain, code,
               "Could not move " + quoted(name) + " to the Trash: " + reason};
}

Error restoreError(std::string_view name, int code, const std::string& reason) {
  return Error{kPOSIXErrorDomain, code, "Could not put back " + quoted(name) + ": " + reason};
}

// What a failed walk to an item's folder means to the user.
std::string folderReason(int err, const std::string& folder) {
  if (err == ENOENT) return "Its folder " + quoted(folder) + " no longer exists.";
  if (err == ENOTDIR || err == ELOOP)
    return "A folder on its path is a symbolic link or no longer a folder.";
  return posixError(err).description + ".";
}

// One item to move, checked, and where it went.
struct Item {
  const std::string* given = nullptr;
  SplitPath where;
  TrashFolder* trash = nullptr;
  bool isFolder = false;
  std::string trashName;  // set once moved
};

// The name in files/ (and, with ".trashinfo", in info/): the item's own name, shortened to leave
// room for the suffix, without cutting a UTF-8 sequence.
std::string trashBaseName(const std::string& name) {
  if (name.size() <= kMaxTrashNameBytes) return name;
  std::size_t cut = kMaxTrashNameBytes;
  while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
  return name.substr(0, cut);
}

// Path= of the .trashinfo: absolute in the home trash, relative to the top folder of a disk's.
std::string infoPath(const Item& item) {
  const std::string& top = item.trash->topdir;
  if (top.empty()) return item.where.path;
  if (top == "/") return item.where.path.substr(1);
  if (isInside(item.where.path, top)) return item.where.path.substr(top.size() + 1);
  return item.where.path;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) errno = EIO;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

std::string readAll(int fd) {
  std::string text;
  char buffer[16384];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0)
    text.append(buffer, static_cast<std::size_t>(n));
  return text;
}

// Moves one checked item: its .trashinfo is made first, under the first free name from suffix
// `attempt` on, then the item is renamed next to it. Returns 0 with `attempt` past the suffix used
// (so many items of one name do not try the same taken names again), or the errno of the failure
// with nothing left behind.
int moveOne(Item& item, int parentFd, const std::string& deletionDate, unsigned& attempt,
            const TrashCalls& calls) {
  const std::string base = trashBaseName(item.where.name);
  const std::string text = trashInfoText(infoPath(item), deletionDate);
  for (; attempt <= kMaxNameAttempts; ++attempt) {
    const std::string name = attempt == 1 ? base : base + "." + std::to_string(attempt);
    const std::string info = name + ".trashinfo";
    const int fd = calls.openat(item.trash->infoFd, info.c_str(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      return errno;
    }
    const bool written = writeAll(fd, text);
    const int writeErr = errno;
    close(fd);
    if (written && calls.renameat2(parentFd, item.where.name.c_str(), item.trash->filesFd,
                                   name.c_str(), RENAME_NOREPLACE) == 0) {
      item.trashName = name;
      ++attempt;
      return 0;
    }
    const int err = written ? errno : writeErr;
    calls.unlinkat(item.trash->infoFd, info.c_str(), 0);
    if (err != EEXIST) return err;  // EEXIST: files/ already holds that name
  }
  return EEXIST;
}

// Puts moved items back where they were, newest first; returns how many could not be.
std::size_t putBack(std::vector<Item*>& moved, FolderWalker& walker, const TrashCalls& calls) {
  std::size_t stuck = 0;
  for (auto it = moved.rbegin(); it != moved.rend(); ++it) {
    Item& item = **it;
    const int parentFd = walker.open(item.where.parent);
    if (parentFd >= 0 && calls.renameat2(item.trash->filesFd, item.trashName.c_str(), parentFd,
                                         item.where.name.c_str(), RENAME_NOREPLACE) == 0) {
      calls.unlinkat(item.trash->infoFd, (item.trashName + ".trashinfo").c_str(), 0);
    } else {
      ++stuck;  // it stays in the Trash with its .trashinfo, listed and restorable
    }
  }
  moved.clear();
  return stuck;
}

// The disk space of folder `name` in `dirFd` and everything in it, as `du -B1` counts it. Read
// without updating access times where the user may (their own files), so putting the folder back
// restores it exactly.
uint64_t diskUsage(int dirFd, const char* name) {
  int fd = openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NOATIME);
  if (fd < 0 && errno == EPERM)
    fd = openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  DIR* dir = fd < 0 ? nullptr : fdopendir(fd);
  if (!dir) {
    if (fd >= 0) close(fd);
    return 0;  // a cache: an unreadable part counts as empty
  }
  struct stat st {};
  uint64_t bytes = fstat(fd, &st) == 0 ? static_cast<uint64_t>(st.st_blocks) * 512 : 0;
  std::vector<std::string> folders;
  while (const dirent* entry = readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    if (fstatat(fd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      folders.emplace_back(entry->d_name);
    } else {
      bytes += static_cast<uint64_t>(st.st_blocks) * 512;
    }
  }
  for (const std::string& folder : folders) bytes += diskUsage(fd, folder.c_str());
  closedir(dir);
  return bytes;
}

// Rewrites a trash's directorysizes through a temporary file and rename. It is a cache other
// tools rebuild, so a failure here is not the move's.
void updateDirectorySizes(const TrashFolder& trash, const std::vector<TrashedFolderSize>& added,
                          const std::vector<std::string>& removed, const TrashCalls& calls) {
  std::string existing;
  const int in =
      calls.openat(trash.folderFd, "directorysizes", O_RDONLY | O_NOFOLLOW | O_CLOEXEC, 0);
  if (in >= 0) {
    existing = readAll(in);
    close(in);
  } else if (added.empty()) {
    return;
  }
  const std::string text = updatedDirectorySizes(existing, added, removed);
  if (in >= 0 && text == existing) return;
  static std::atomic<unsigned> counter = 0;
  const std::string temporary =
      "directorysizes." + std::to_string(getpid()) + "." + std::to_string(++counter) + ".pending";
  const int out = calls.openat(trash.folderFd, temporary.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (out < 0) return;
  const bool written = writeAll(out, text);
  close(out);
  if (!written ||
      calls.renameat2(trash.folderFd, temporary.c_str(), trash.folderFd, "directorysizes", 0) != 0)
    calls.unlinkat(trash.folderFd, temporary.c_str(), 0);
}

// Refuses a list naming an item twice, or an item and a folder holding it: the second move
// would fail half-way. Empty when the list is fine, else the name to report.
std::optional<std::string> nestedOrRepeated(const std::vector<Item>& items) {
  std::unordered_set<std::string_view> paths;
  for (const Item& item : items)
    if (!paths.insert(item.where.path).second) return item.where.name;
  for (const Item& item : items) {
    for (std::string folder = item.where.parent; folder != "/"; folder = parentPath(folder))
      if (paths.contains(folder)) return item.where.name;
  }
  return std::nullopt;
}

}  // namespace

const TrashCalls& TrashCalls::system() {
  static const TrashCalls calls{systemRename, systemOpen, systemUnlink};
  return calls;
}

std::optional<TrashMapping> moveToTrash(const std::vector<std::string>& paths,
                                        const TrashOptions& options, Error* error) {
  const TrashCalls& calls = options.calls ? *options.calls : TrashCalls::system();
  auto fail = [&](Error e) -> std::optional<TrashMapping> {
    if (error) *error = std::move(e);
    return std::nullopt;
  };
  // Check every item, and find and ready its trash, before anything moves.
  std::vector<Item> items(paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    std::optional<SplitPath> where = splitAbsolutePath(paths[i]);
    if (!where)
      return fail(moveError(displayNameForPath(paths[i]), EINVAL, "Its path is not a full path."));
    items[i].given = &paths[i];
    items[i].where = std::move(*where);
  }
  if (std::optional<std::string> name = nestedOrRepeated(items))
    return fail(moveError(*name, EINVAL, "It is listed twice, or inside another item listed."));

  FolderWalker walker(calls, kOpenFolders);
  TrashFolders trashes(homeTrashPath(options.homeTrash), calls);
  for (Item& item : items) {
    const int parentFd = walker.open(item.where.parent);
    if (parentFd < 0) {
      const int err = errno;
      return fail(moveError(item.where.name, err, folderReason(err, item.where.parent)));
    }
    struct statx st {};
    if (statx(parentFd, item.where.name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
              STATX_TYPE | STATX_MNT_ID, &st) != 0) {
      const int err = errno;
      return fail(moveError(item.where.name, err,
                            err == ENOENT ? "It no longer exists." : folderReason(err, "")));
    }
    const FileSystemPlace place{makedev(st.stx_dev_major, st.stx_dev_minor),
                                (st.stx_mask & STATX_MNT_ID) ? st.stx_mnt_id : 0};
    const std::optional<FileSystemPlace> parentPlace = placeOf(parentFd, "", AT_EMPTY_PATH);
    if (!parentPlace || !isSamePlace(place, *parentPlace))
      return fail(moveError(item.where.name, EBUSY, "It is a mount point."));
    item.isFolder = S_ISDIR(st.stx_mode);
    Error reason;
    item.trash = trashes.forItem(item.where.parent, place, &reason);
    if (!item.trash) return fail(moveError(item.where.name, reason.code, reason.description));
    if (isSameOrInside(item.trash->path, item.where.path))
      return fail(moveError(item.where.name, EINVAL, "It holds the Trash itself."));
  }

  // Move them, putting everything back at the first failure.
  const std::string deletionDate = trashDeletionDate(std::time(nullptr));
  std::vector<Item*> moved;
  moved.reserve(items.size());
  std::map<std::pair<const TrashFolder*, std::string>, unsigned> nextAttempt;
  for (Item& item : items) {
    const int parentFd = walker.open(item.where.parent);
    unsigned& attempt =
        nextAttempt.try_emplace({item.trash, trashBaseName(item.where.name)}, 1u).first->second;
    const int err = parentFd < 0 ? errno : moveOne(item, parentFd, deletionDate, attempt, calls);
    if (err == 0) {
      moved.push_back(&item);
      continue;
    }
    std::string reason =
        parentFd < 0 ? folderReason(err, item.where.parent) : posixError(err).description + ".";
    if (err == EINVAL && parentFd >= 0)
      reason = "This file system cannot move it without the risk of replacing another item.";
    if (const std::size_t stuck = putBack(moved, walker, calls))
      reason += stuck == 1 ? " One item moved before it could not be put back and remains in the "
                             "Trash."
                           : " " + std::to_string(stuck) +
                                 " items moved before it could not be put back and remain in "
                                 "the Trash.";
    return fail(moveError(item.where.name, err, reason));
  }

  // Record the folders' sizes, then make the .trashinfo files durable: one sync per file system.
  std::vector<dev_t> synced;
  for (TrashFolder* trash : trashes.used()) {
    std::vector<TrashedFolderSize> sizes;
    for (const Item& item : items) {
      if (item.trash != trash || !item.isFolder) continue;
      struct stat info {};
      fstatat(trash->infoFd, (item.trashName + ".trashinfo").c_str(), &info, 0);
      sizes.push_back({diskUsage(trash->filesFd, item.trashName.c_str()),
                       static_cast<int64_t>(info.st_mtim.tv_sec), item.trashName});
    }
    if (!sizes.empty()) updateDirectorySizes(*trash, sizes, {}, calls);
    if (std::find(synced.begin(), synced.end(), trash->place.device) == synced.end()) {
      syncfs(trash->infoFd);
      synced.push_back(trash->place.device);
    }
  }

  TrashMapping mapping;
  mapping.reserve(items.size());
  for (const Item& item : items)
    mapping.emplace_back(*item.given, item.trash->path + "/files/" + item.trashName);
  return mapping;
}

// A trash folder a restorer reached: the folder itself (for info/ and directorysizes) and files/.
struct RestoreTrash {
  int folderFd = -1, filesFd = -1;
};

struct TrashRestorer::Folders {
  Folders(const TrashCalls& c) : calls(c), walker(c, kOpenFolders) {}
  ~Folders() {
    for (const auto& [path, trash] : trashes)
      for (int fd : {trash.folderFd, trash.filesFd})
        if (fd >= 0) close(fd);
  }
  const TrashCalls& calls;
  FolderWalker walker;
  std::map<std::string, RestoreTrash> trashes;  // by path; only folders that opened
};

TrashRestorer::TrashRestorer(const TrashOptions& options)
    : folders_(std::make_unique<Folders>(options.calls ? *options.calls : TrashCalls::system())) {}

TrashRestorer::~TrashRestorer() = default;

bool restoreFromTrash(const std::string& trashedPath, const std::string& originalPath,
                      const TrashOptions& options, Error* error) {
  return TrashRestorer(options).restore(trashedPath, originalPath, error);
}

bool TrashRestorer::restore(const std::string& trashedPath, const std::string& originalPath,
                            Error* error) {
  const TrashCalls& calls = folders_->calls;
  const std::optional<SplitPath> trashed = splitAbsolutePath(trashedPath);
  const std::optional<SplitPath> original = splitAbsolutePath(originalPath);
  auto fail = [&](int code, const std::string& reason) {
    if (error)
      *error = restoreError(
          original ? original->name : std::string(displayNameForPath(originalPath)), code, reason);
    return false;
  };
  if (!original) return fail(EINVAL, "Its original path is not a full path.");
  if (!trashed || displayNameForPath(trashed->parent) != "files")
    return fail(EINVAL, "It is not in a trash folder.");

  const int parentFd = folders_->walker.open(original->parent);
  if (parentFd < 0) {
    const int err = errno;
    return fail(err, folderReason(err, original->parent));
  }
  const std::string trashPath = parentPath(trashed->parent);
  auto known = folders_->trashes.find(trashPath);
  if (known == folders_->trashes.end()) {
    RestoreTrash trash;
    trash.folderFd =
        calls.openat(AT_FDCWD, trashPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    trash.filesFd = trash.folderFd < 0
                        ? -1
                        : calls.openat(trash.folderFd, "files",
                                       O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0);
    if (trash.filesFd < 0) {
      const int err = errno;
      if (trash.folderFd >= 0) close(trash.folderFd);
      return fail(err,
                  "Its trash folder could not be opened (" + posixError(err).description + ").");
    }
    known = folders_->trashes.emplace(trashPath, trash).first;
  }
  const RestoreTrash& trash = known->second;
  const int moved = calls.renameat2(trash.filesFd, trashed->name.c_str(), parentFd,
                                    original->name.c_str(), RENAME_NOREPLACE);
  const int err = errno;
  if (moved != 0) {
    if (err == EEXIST) return fail(err, "An item with the same name is already there.");
    if (err == ENOENT) return fail(err, "It is no longer in the Trash.");
    if (err == EINVAL)
      return fail(err,
                  "This file system cannot move it without the risk of replacing another item.");
    return fail(err, posixError(err).description + ".");
  }
  calls.unlinkat(trash.folderFd, ("info/" + trashed->name + ".trashinfo").c_str(), 0);
  // Only folders have a directorysizes line.
  struct stat restored {};
  if (fstatat(parentFd, original->name.c_str(), &restored, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISDIR(restored.st_mode)) {
    TrashFolder folder;
    folder.folderFd = trash.folderFd;
    updateDirectorySizes(folder, {}, {trashed->name}, calls);
    folder.folderFd = -1;
  }
  return true;
}

std::string homeTrashFilesFolder(const TrashOptions& options) {
  return homeTrashPath(options.homeTrash) + "/files";
}

}  // namespace tw
