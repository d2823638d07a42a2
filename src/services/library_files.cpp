#include "services/library_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QStandardPaths>
#include <QUuid>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>

#include "platform/natural_order.h"
#include "platform/paths.h"
#include "store/scan_store.h"
#include "store/schema.h"

namespace tw::library {

namespace {

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

// The extension after the last ".", compared without regard to ASCII case.
bool hasExtension(std::string_view name, std::string_view extension) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return false;
  const std::string_view actual = name.substr(dot + 1);
  return actual.size() == extension.size() &&
         std::equal(actual.begin(), actual.end(), extension.begin(), [](char a, char b) {
           return (a >= 'A' && a <= 'Z' ? a + ('a' - 'A') : a) == b;
         });
}

// Visible names of `folder` that are regular files and pass `keep`.
template <typename Keep>
std::vector<std::string> regularFileNames(const std::string& folder, Keep keep) {
  std::vector<std::string> names;
  const int dirfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirfd < 0) return names;
  DirHandle dir(::fdopendir(dirfd));
  if (!dir) {
    ::close(dirfd);
    return names;
  }
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    if (name.empty() || name.front() == '.' || !keep(name)) continue;
    if (entry->d_type != DT_REG) {
      if (entry->d_type != DT_UNKNOWN) continue;
      struct stat st;
      if (::fstatat(dirfd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode))
        continue;
    }
    names.emplace_back(name);
  }
  return names;
}

void sortNaturally(std::vector<std::string>& names) {
  std::sort(names.begin(), names.end(),
            [](const std::string& a, const std::string& b) { return naturalCompare(a, b) < 0; });
}

void remember(std::optional<Error>* firstProblem, const Error& error) {
  if (firstProblem && !*firstProblem) *firstProblem = error;
}

}  // namespace

std::string defaultFolderPath() {
  const QByteArray base =
      QFile::encodeName(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
  return appendPathComponent(std::string(base.constData(), static_cast<std::size_t>(base.size())),
                             kFolderName);
}

void createFolders(const std::string& path) {
  if (path.empty()) return;
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0755);
  }
  ::mkdir(path.c_str(), 0700);
}

std::string newUUIDString() {
  const QByteArray text = QUuid::createUuid().toByteArray(QUuid::WithoutBraces).toUpper();
  return std::string(text.constData(), static_cast<std::size_t>(text.size()));
}

std::string retainedScanName(double secondsSince1970, std::string_view uuid) {
  const long long milliseconds = std::llround(secondsSince1970 * 1000.0);
  const std::string id(uuid);
  char name[128];
  std::snprintf(name, sizeof name, kRetainedScanFormat, milliseconds, id.c_str());
  return name;
}

std::string pendingCacheName(std::string_view uuid) {
  const std::string id(uuid);
  char name[128];
  std::snprintf(name, sizeof name, kPendingCacheFormat, id.c_str());
  return name;
}

double currentTime() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::vector<std::string> listRetainedScans(const std::string& folder) {
  std::vector<std::string> names =
      regularFileNames(folder, [](std::string_view name) { return hasExtension(name, "sqlite"); });
  sortNaturally(names);
  for (std::string& name : names) name = appendPathComponent(folder, name);
  return names;
}

std::vector<std::string> convertLegacyRetainedScans(const std::string& folder,
                                                    std::optional<Error>* firstProblem) {
  std::vector<std::string> archives =
      regularFileNames(folder, [](std::string_view name) { return hasExtension(name, "archive"); });
  sortNaturally(archives);
  for (const std::string& name : archives) {
    const std::string archive = appendPathComponent(folder, name);
    const std::string target =
        appendPathComponent(folder, name.substr(0, name.rfind('.')) + ".sqlite");
    if (!pathExists(target)) {
      Error error;
      if (!ScanStore::migrateArchive(archive, target, &error)) {
        remember(firstProblem, error);
        continue;
      }
    }
    Error error;
    const std::optional<ScanMetadata> metadata = ScanStore::metadataAt(target, &error);
    if (!metadata) {
      remember(firstProblem, error);
      continue;
    }
    if (metadata->schemaVersion != schema::kCurrentVersion) {
      char text[96];
      std::snprintf(text, sizeof text, schema::kUnsupportedSchemaFormat,
                    static_cast<long>(metadata->schemaVersion));
      remember(firstProblem, Error{kSQLiteErrorDomain, schema::kVersionErrorCode, text});
      continue;
    }
    ::unlink(archive.c_str());
    ::unlink((archive + kLegacySidecarSuffix).c_str());
  }
  return listRetainedScans(folder);
}

std::size_t pruneRetainedScans(const std::string& folder, std::size_t limit) {
  const std::vector<std::string> retained = listRetainedScans(folder);
  std::size_t deleted = 0;
  for (std::size_t i = 0; i + limit < retained.size(); ++i) {
    if (::unlink(retained[i].c_str()) == 0) ++deleted;
  }
  return deleted;
}

bool copyFileDurably(const std::string& from, const std::string& to, const FileSystemCalls& calls,
                     Error* error) {
  const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (source < 0) {
    if (error) *error = lastPosixError();
    return false;
  }
  const int destination = calls.open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (destination < 0) {
    if (error) *error = lastPosixError();
    ::close(source);
    return false;
  }
  constexpr std::size_t kChunk = 1 << 20;
  std::unique_ptr<char[]> buffer(new char[kChunk]);
  int err = 0;
  off_t offset = 0;
  for (;;) {
    const ssize_t got = ::read(source, buffer.get(), kChunk);
    if (got < 0) {
      if (errno == EINTR) continue;
      err = errno;
      break;
    }
    if (got == 0) break;
    for (ssize_t done = 0; done < got && err == 0;) {
      const ssize_t put = calls.pwrite(destination, buffer.get() + done,
                                       static_cast<std::size_t>(got - done), offset);
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) {
        err = put < 0 ? errno : ENOSPC;
        break;
      }
      done += put;
      offset += put;
    }
    if (err != 0) break;
  }
  if (err == 0 && calls.fsync(destination) != 0) err = errno;
  ::close(destination);
  ::close(source);
  if (err != 0) {
    calls.unlink(to.c_str());
    if (error) *error = posixError(err);
    return false;
  }
  return true;
}

bool replaceFile(const std::string& pending, const std::string& destination,
                 const FileSystemCalls& calls, Error* error) {
  struct stat replaced;
  if (::stat(destination.c_str(), &replaced) == 0) {
    ::chmod(pending.c_str(), replaced.st_mode & 07777);
  }
  if (calls.rename(pending.c_str(), destination.c_str()) != 0) {
    if (error) *error = lastPosixError();
    return false;
  }
  return true;
}

void flushFolder(const std::string& folder, const FileSystemCalls& calls) {
  const int fd = calls.open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return;
  calls.fsync(fd);
  ::close(fd);
}

int removeStalePendingFiles(const std::string& folder, std::time_t now, int ageSeconds) {
  const int dirfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirfd < 0) return 0;
  DirHandle dir(::fdopendir(dirfd));
  if (!dir) {
    ::close(dirfd);
    return 0;
  }
  const std::string_view suffix(kPendingSuffix);
  int removed = 0;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    if (name.size() <= suffix.size() || !name.ends_with(suffix)) continue;
    struct stat st;
    if (::fstatat(dirfd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISREG(st.st_mode) || now - st.st_mtime < ageSeconds) continue;
    if (::unlinkat(dirfd, entry->d_name, 0) == 0) ++removed;
  }
  return removed;
}

bool pathExists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace tw::library
