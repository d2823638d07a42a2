// A volume layout for tests: a temporary folder plays "/" of a system disk with firmlinked data,
// mounted system volumes and protected locations, and clone attributes are handed out per file.
#pragma once

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "platform/paths.h"
#include "platform/volume_layout.h"

namespace tw::test {

class TestVolumeLayout final : public VolumeLayout {
 public:
  explicit TestVolumeLayout(std::string root) : root_(std::move(root)) {
    volume.mountPath = root_;
    volume.name = "Test Disk";
  }

  // The volume reported for the root and everything below it.
  VolumeInfo volume;
  // Whether the root gets the system-disk rules (it always counts as a volume root).
  bool systemDisk = true;
  std::vector<SystemVolume> systemVolumes;
  std::vector<std::string> protectedPaths = {"/Library", "/private"};

  // Marks the file at `path` as a member of clone family `cloneID`.
  void makeClone(const std::string& path, uint64_t cloneID, uint32_t referenceCount = 2) {
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0) clones_[st.st_ino] = {0, 7, cloneID, 0, referenceCount};
  }

  std::optional<VolumeInfo> volumeForPath(const std::string& path) const override {
    if (!isSameOrInside(standardizePath(path), root_)) return std::nullopt;
    return volume;
  }
  std::string systemRoot() const override { return systemDisk ? root_ : std::string(); }
  std::vector<SystemVolume> mountedSystemVolumes() const override { return systemVolumes; }
  std::vector<std::string> protectedLocations() const override { return protectedPaths; }
  bool mayHaveClones(int) const override { return true; }
  std::optional<CloneAttributes> cloneAttributes(int, const char*,
                                                 const struct statx& st) const override {
    auto it = clones_.find(st.stx_ino);
    return it == clones_.end() ? std::nullopt : std::optional(it->second);
  }

 private:
  std::string root_;
  std::map<uint64_t, CloneAttributes> clones_;  // by inode
};

}  // namespace tw::test
