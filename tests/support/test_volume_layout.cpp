#include "support/test_volume_layout.h"

#include <sys/stat.h>

#include "platform/paths.h"

namespace tw::test {

void TestVolumeLayout::makeClone(const std::string& path, uint64_t cloneID,
                                 uint32_t referenceCount) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return;
  CloneAttributes attributes;
  attributes.device = 7;
  attributes.cloneID = cloneID;
  attributes.referenceCount = referenceCount;
  clones_[st.st_ino] = attributes;
}

std::optional<VolumeInfo> TestVolumeLayout::volumeForPath(const std::string& path) const {
  if (!isSameOrInside(standardizePath(path), root_)) return std::nullopt;
  return volume;
}

std::optional<CloneAttributes> TestVolumeLayout::cloneAttributes(int, const char*,
                                                                 const struct statx& st) const {
  auto it = clones_.find(st.stx_ino);
  if (it == clones_.end()) return std::nullopt;
  return it->second;
}

}  // namespace tw::test
