#include "app/library_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QStandardPaths>
#include <cerrno>

#include "platform/paths.h"

namespace tw {

namespace {

// mkdir -p on raw bytes; errors are left for later operations to meet.
void makeFolders(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0755);
  }
  ::mkdir(path.c_str(), 0700);
}

}  // namespace

std::string libraryFolderPath() {
  const QByteArray base =
      QFile::encodeName(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
  std::string path = appendPathComponent(std::string(base.constData(), base.size()), "Tarnwell");
  makeFolders(path);
  return path;
}

std::string historyFolderPath() {
  std::string path = appendPathComponent(libraryFolderPath(), kHistoryFolderName);
  makeFolders(path);
  return path;
}

std::string instanceLockPath() {
  return appendPathComponent(libraryFolderPath(), kInstanceLockFileName);
}

std::string scanMarkerPath() {
  return appendPathComponent(libraryFolderPath(), kScanMarkerFileName);
}

bool discardInterruptedScanIfNeeded() {
  return ::unlink(scanMarkerPath().c_str()) == 0;
}

int removeStalePendingFiles(const std::string& folder, std::time_t now, int ageSeconds) {
  const int dirfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirfd < 0) return 0;
  DIR* dir = ::fdopendir(dirfd);
  if (!dir) {
    ::close(dirfd);
    return 0;
  }
  int removed = 0;
  const std::string_view suffix(kPendingSuffix);
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name(entry->d_name);
    if (name.size() <= suffix.size() || !name.ends_with(suffix)) continue;
    struct stat st;
    if (::fstatat(dirfd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISREG(st.st_mode) || now - st.st_mtime < ageSeconds) continue;
    if (::unlinkat(dirfd, entry->d_name, 0) == 0) ++removed;
  }
  ::closedir(dir);
  return removed;
}

int removeStalePendingLibraryFiles(std::time_t now) {
  const std::string library = libraryFolderPath();
  return removeStalePendingFiles(library, now) +
         removeStalePendingFiles(appendPathComponent(library, kHistoryFolderName), now);
}

}  // namespace tw
