// What the scanner needs to know about the disks below a scan: which volume holds a path and its
// figures, which files share blocks with others (clones), and the system-disk rules of a layout
// where one folder plays "/" with firmlinked data volumes, mounted system volumes and protected
// locations. Linux has none of those system-disk rules; tests inject a layout that has them so the
// walk's every rule runs on a temporary folder.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tw {

// A mounted volume and its space figures, in bytes.
struct VolumeInfo {
  std::string mountPath;
  std::string name;  // the file system's label, else the mount point's last component
  uint64_t totalCapacity = 0;
  uint64_t availableCapacity = 0;           // what a normal user can still write
  uint64_t availableForImportantUsage = 0;  // including blocks reserved for the system
};

// Clone attributes of one file.
struct CloneAttributes {
  uint64_t privateSize = 0;
  uint32_t device = 0;
  uint64_t cloneID = 0;
  uint64_t extendedFlags = 0;
  uint32_t referenceCount = 0;

  static constexpr uint64_t kSharesAllBlocks = 64;
  // A clone has a clone id and shares its blocks with at least one other file.
  bool isClone() const {
    return cloneID != 0 && (referenceCount >= 2 || (extendedFlags & kSharesAllBlocks));
  }
  // The key of the file's clone family: "%u:%llu" of device and clone id.
  std::string key() const;
};

// A system volume mounted below the system root, with the space it uses.
struct SystemVolume {
  std::string mountPath;
  uint64_t spaceUsed = 0;
};

class VolumeLayout {
 public:
  virtual ~VolumeLayout() = default;

  // The volume holding `path`, or nothing when it cannot be determined.
  virtual std::optional<VolumeInfo> volumeForPath(const std::string& path) const = 0;

  // The folder that plays "/" for the system-disk rules; empty when the layout has none.
  virtual std::string systemRoot() const { return {}; }
  // Mounted file systems, with their space used, for the system-volume rule.
  virtual std::vector<SystemVolume> mountedSystemVolumes() const { return {}; }
  // Locations below the system root ("/Library") that must not measure empty.
  virtual std::vector<std::string> protectedLocations() const { return {}; }

  // Whether files of the file system open at `dirfd` can be clones; only then is any file asked.
  virtual bool mayHaveClones(int dirfd) const = 0;
  // Clone attributes of the regular file `name` in `dirfd`, whose statx is `st`; nothing when
  // the file is not a clone. Called from the scanner's reading threads.
  virtual std::optional<CloneAttributes> cloneAttributes(int dirfd, const char* name,
                                                         const struct statx& st) const = 0;
};

// The layout of the running Linux system: mounts from /proc/self/mountinfo (or what
// `readMountInfo` gives, for tests), figures from statvfs, labels from /dev/disk/by-label, clones
// from FIEMAP on btrfs, XFS and bcachefs.
std::shared_ptr<VolumeLayout> makeLinuxVolumeLayout(
    std::function<std::string()> readMountInfo = nullptr);

// Directory names that make a folder a package (an application bundle and the like).
bool isPackageName(std::string_view name);

}  // namespace tw
