#include "store/private_file_vfs.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

namespace tw {

const FileSystemCalls& FileSystemCalls::system() {
  static const FileSystemCalls calls{
      [](const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); },
      ::pwrite,
      ::fsync,
      ::rename,
      ::unlink,
  };
  return calls;
}

namespace {

thread_local const FileSystemCalls* currentCalls = nullptr;

const FileSystemCalls& callsForThisThread() {
  return currentCalls ? *currentCalls : FileSystemCalls::system();
}

sqlite3_vfs* baseVfs() {
  return sqlite3_vfs_find(nullptr);
}

struct PrivateFile {
  sqlite3_file base;
  int fd;
  const FileSystemCalls* calls;
};

PrivateFile* asPrivate(sqlite3_file* file) {
  return reinterpret_cast<PrivateFile*>(file);
}

int fileClose(sqlite3_file* file) {
  PrivateFile* f = asPrivate(file);
  if (f->fd >= 0) ::close(f->fd);
  f->fd = -1;
  return SQLITE_OK;
}

int fileRead(sqlite3_file* file, void* buffer, int amount, sqlite3_int64 offset) {
  PrivateFile* f = asPrivate(file);
  auto* out = static_cast<char*>(buffer);
  int done = 0;
  while (done < amount) {
    ssize_t got = ::pread(f->fd, out + done, amount - done, offset + done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return SQLITE_IOERR_READ;
    if (got == 0) break;
    done += static_cast<int>(got);
  }
  if (done < amount) {
    std::memset(out + done, 0, amount - done);
    return SQLITE_IOERR_SHORT_READ;
  }
  return SQLITE_OK;
}

int fileWrite(sqlite3_file* file, const void* buffer, int amount, sqlite3_int64 offset) {
  PrivateFile* f = asPrivate(file);
  const auto* in = static_cast<const char*>(buffer);
  int done = 0;
  while (done < amount) {
    ssize_t put = f->calls->pwrite(f->fd, in + done, amount - done, offset + done);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return errno == ENOSPC || errno == EDQUOT ? SQLITE_FULL : SQLITE_IOERR_WRITE;
    if (put == 0) return SQLITE_FULL;
    done += static_cast<int>(put);
  }
  return SQLITE_OK;
}

int fileTruncate(sqlite3_file* file, sqlite3_int64 size) {
  return ::ftruncate(asPrivate(file)->fd, size) == 0 ? SQLITE_OK : SQLITE_IOERR_TRUNCATE;
}

int fileSync(sqlite3_file* file, int) {
  PrivateFile* f = asPrivate(file);
  return f->calls->fsync(f->fd) == 0 ? SQLITE_OK : SQLITE_IOERR_FSYNC;
}

int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  struct stat st {};
  if (::fstat(asPrivate(file)->fd, &st) != 0) return SQLITE_IOERR_FSTAT;
  *size = st.st_size;
  return SQLITE_OK;
}

int fileLock(sqlite3_file*, int) {
  return SQLITE_OK;
}
int fileUnlock(sqlite3_file*, int) {
  return SQLITE_OK;
}
int fileCheckReservedLock(sqlite3_file*, int* reserved) {
  *reserved = 0;
  return SQLITE_OK;
}
int fileControl(sqlite3_file*, int, void*) {
  return SQLITE_NOTFOUND;
}
int fileSectorSize(sqlite3_file*) {
  return 4096;
}
int fileDeviceCharacteristics(sqlite3_file*) {
  return 0;
}

sqlite3_io_methods makeMethods() {
  sqlite3_io_methods methods{};
  methods.iVersion = 1;
  methods.xClose = fileClose;
  methods.xRead = fileRead;
  methods.xWrite = fileWrite;
  methods.xTruncate = fileTruncate;
  methods.xSync = fileSync;
  methods.xFileSize = fileSize;
  methods.xLock = fileLock;
  methods.xUnlock = fileUnlock;
  methods.xCheckReservedLock = fileCheckReservedLock;
  methods.xFileControl = fileControl;
  methods.xSectorSize = fileSectorSize;
  methods.xDeviceCharacteristics = fileDeviceCharacteristics;
  return methods;
}

const sqlite3_io_methods kMethods = makeMethods();

int vfsOpen(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  // Only the main database file is private; anything else SQLite might ask for goes to the
  // ordinary layer (the writer keeps its temporary store in memory, so nothing should).
  if (!name || !(flags & SQLITE_OPEN_MAIN_DB)) {
    sqlite3_vfs* base = baseVfs();
    return base->xOpen(base, name, file, flags, outFlags);
  }
  PrivateFile* f = asPrivate(file);
  f->base.pMethods = nullptr;
  f->calls = &callsForThisThread();
  int mode = (flags & SQLITE_OPEN_READWRITE) ? O_RDWR : O_RDONLY;
  if (flags & SQLITE_OPEN_CREATE) mode |= O_CREAT;
  f->fd = f->calls->open(name, mode | O_CLOEXEC, 0644);
  if (f->fd < 0) return SQLITE_CANTOPEN;
  f->base.pMethods = &kMethods;
  if (outFlags) *outFlags = flags;
  return SQLITE_OK;
}

int vfsDelete(sqlite3_vfs*, const char* name, int) {
  if (callsForThisThread().unlink(name) != 0 && errno != ENOENT) return SQLITE_IOERR_DELETE;
  return SQLITE_OK;
}

int vfsAccess(sqlite3_vfs*, const char* name, int flags, int* result) {
  sqlite3_vfs* base = baseVfs();
  return base->xAccess(base, name, flags, result);
}

int vfsFullPathname(sqlite3_vfs*, const char* name, int size, char* out) {
  sqlite3_vfs* base = baseVfs();
  return base->xFullPathname(base, name, size, out);
}

int vfsRandomness(sqlite3_vfs*, int size, char* out) {
  sqlite3_vfs* base = baseVfs();
  return base->xRandomness(base, size, out);
}

int vfsSleep(sqlite3_vfs*, int microseconds) {
  sqlite3_vfs* base = baseVfs();
  return base->xSleep(base, microseconds);
}

int vfsCurrentTime(sqlite3_vfs*, double* now) {
  sqlite3_vfs* base = baseVfs();
  return base->xCurrentTime(base, now);
}

int vfsGetLastError(sqlite3_vfs*, int size, char* out) {
  sqlite3_vfs* base = baseVfs();
  return base->xGetLastError ? base->xGetLastError(base, size, out) : 0;
}

int vfsCurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* now) {
  sqlite3_vfs* base = baseVfs();
  if (base->iVersion >= 2 && base->xCurrentTimeInt64) return base->xCurrentTimeInt64(base, now);
  double day = 0;
  int rc = base->xCurrentTime(base, &day);
  *now = static_cast<sqlite3_int64>(day * 86400000.0);
  return rc;
}

}  // namespace

const char* privateFileVfsName() {
  static constexpr const char* kName = "tarnwell-private-file";
  static std::once_flag once;
  static sqlite3_vfs vfs{};
  std::call_once(once, [] {
    sqlite3_initialize();
    sqlite3_vfs* base = baseVfs();
    vfs.iVersion = 2;
    vfs.szOsFile = std::max<int>(sizeof(PrivateFile), base->szOsFile);
    vfs.mxPathname = base->mxPathname;
    vfs.zName = kName;
    vfs.xOpen = vfsOpen;
    vfs.xDelete = vfsDelete;
    vfs.xAccess = vfsAccess;
    vfs.xFullPathname = vfsFullPathname;
    vfs.xRandomness = vfsRandomness;
    vfs.xSleep = vfsSleep;
    vfs.xCurrentTime = vfsCurrentTime;
    vfs.xGetLastError = vfsGetLastError;
    vfs.xCurrentTimeInt64 = vfsCurrentTimeInt64;
    sqlite3_vfs_register(&vfs, 0);
  });
  return kName;
}

PrivateFileCallsScope::PrivateFileCallsScope(const FileSystemCalls& calls)
    : previous_(currentCalls) {
  currentCalls = &calls;
}

PrivateFileCallsScope::~PrivateFileCallsScope() {
  currentCalls = previous_;
}

}  // namespace tw
