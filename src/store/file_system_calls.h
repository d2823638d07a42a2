// The system calls through which a scan database file is written, gathered so a test can make any
// one of them fail (a full disk, an I/O error, a refused rename) and check that nothing is lost.
// Everything the writer does to the file system goes through one of these: SQLite's own writes of
// the new file, the fsync of the finished file and of its folder, the rename into place and the
// removal of a temporary file.
#pragma once

#include <sys/types.h>

namespace tw {

struct FileSystemCalls {
  int (*open)(const char* path, int flags, mode_t mode);
  ssize_t (*pwrite)(int fd, const void* buffer, size_t count, off_t offset);
  int (*fsync)(int fd);
  int (*rename)(const char* from, const char* to);
  int (*unlink)(const char* path);

  // The real calls.
  static const FileSystemCalls& system();
};

}  // namespace tw
