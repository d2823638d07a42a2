// Converting a legacy scan archive into a scan database. The archive and its sidecar are only
// read; the new file is written like any other scan database.
#include <fcntl.h>
#include <plist/plist.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "store/binary_plist_check.h"
#include "store/keyed_archive.h"
#include "store/scan_store.h"

namespace tw {

namespace {

// Seconds between 1970 and 2001, the epoch of property-list dates.
constexpr double kSecondsFrom1970To2001 = 978307200.0;

// The whole file in memory, mapped when it is a regular file.
class FileBytes {
 public:
  explicit FileBytes(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      error_ = errno;
      return;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
      error_ = errno;
    } else if (S_ISREG(st.st_mode) && st.st_size > 0) {
      void* mapped =
          ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
      if (mapped != MAP_FAILED) {
        mapped_ = static_cast<const uint8_t*>(mapped);
        size_ = static_cast<size_t>(st.st_size);
      }
    }
    if (!error_ && !mapped_) readAll(fd);
    ::close(fd);
  }
  ~FileBytes() {
    if (mapped_) ::munmap(const_cast<uint8_t*>(mapped_), size_);
  }
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  int error() const { return error_; }
  std::span<const uint8_t> bytes() const {
    return mapped_ ? std::span<const uint8_t>(mapped_, size_) : std::span<const uint8_t>(copy_);
  }

 private:
  void readAll(int fd) {
    uint8_t buffer[65536];
    for (;;) {
      ssize_t got = ::read(fd, buffer, sizeof buffer);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) {
        error_ = errno;
        return;
      }
      if (got == 0) return;
      copy_.insert(copy_.end(), buffer, buffer + got);
    }
  }

  const uint8_t* mapped_ = nullptr;
  size_t size_ = 0;
  std::vector<uint8_t> copy_;
  int error_ = 0;
};

// A sidecar is one small dictionary; these leave room for keys of later releases.
constexpr BinaryPlistLimits kSidecarLimits{.maxDepth = 32, .maxExpandedObjects = 65536};

// Copies the sidecar's "scanDate" (a date), "sourceFingerprint" and "sourceItemCount" (numbers)
// onto the root; keys of another type, and a sidecar that is missing, unreadable or damaged, are
// ignored. Sidecars were written as binary property lists and pass the archive's safety check
// before the parser sees them: the parser recurses once per level and copies shared objects.
void applySidecar(const std::string& path, ScanNode& root) {
  FileBytes file(path);
  std::span<const uint8_t> bytes = file.bytes();
  if (file.error() || checkBinaryPlist(bytes, kSidecarLimits)) return;
  plist_t plist = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                 &plist);
  if (!plist) return;
  if (plist_get_node_type(plist) == PLIST_DICT) {
    if (plist_t date = plist_dict_get_item(plist, "scanDate");
        date && plist_get_node_type(date) == PLIST_DATE) {
      int32_t seconds = 0, microseconds = 0;
      plist_get_date_val(date, &seconds, &microseconds);
      root.setScanDate(kSecondsFrom1970To2001 + seconds + microseconds / 1e6);
    }
    auto number = [plist](const char* key, uint64_t& out) {
      plist_t item = plist_dict_get_item(plist, key);
      if (!item) return false;
      if (plist_get_node_type(item) == PLIST_UINT) {
        plist_get_uint_val(item, &out);
        return true;
      }
      if (plist_get_node_type(item) == PLIST_REAL) {
        double value = 0;
        plist_get_real_val(item, &value);
        out = static_cast<uint64_t>(value);
        return true;
      }
      return false;
    };
    uint64_t value = 0;
    if (number("sourceFingerprint", value)) root.setSourceFingerprint(value);
    if (number("sourceItemCount", value)) root.setSourceItemCount(static_cast<int64_t>(value));
  }
  plist_free(plist);
}

}  // namespace

bool ScanStore::migrateArchive(const std::string& archivePath, const std::string& destinationPath,
                               Error* error) {
  DecodedArchive decoded;
  {
    FileBytes archive(archivePath);
    if (archive.error()) {
      if (error) *error = posixError(archive.error());
      return false;
    }
    decoded = decodeScanArchive(archive.bytes());
  }
  if (!decoded.root) {
    if (error) {
      *error =
          decoded.error.value_or(Error{kArchiveErrorDomain, 1, "The archive could not be read."});
    }
    return false;
  }
  applySidecar(archivePath + ".metadata.plist", *decoded.root);
  return writeRootNode(decoded.root.get(), destinationPath, error);
}

}  // namespace tw
