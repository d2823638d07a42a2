#include "browser/volume_presentation.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "platform/paths.h"

namespace tw {

namespace {

bool isListedOnItsOwn(std::string_view name) {
  return name == "Users" || name == "System" || name == "Applications" || name == "private" ||
         name == "Library";
}

}  // namespace

void prepareVolumePresentationForRoot(ScanNode& root, const VolumeLayout& layout) {
  const std::string path = standardizePath(root.path());
  if (std::optional<VolumeInfo> volume = layout.volumeForPath(path)) {
    const std::string mount = standardizePath(volume->mountPath);
    if (!mount.empty() && mount == path) {
      root.setVolumeRoot(true);
      if (!volume->name.empty()) root.setName(volume->name);
      root.setVolumeCapacity(volume->totalCapacity);
      root.setVolumeFreeSpace(volume->availableCapacity);
      root.setVolumeAvailableSpace(
          std::max(volume->availableForImportantUsage, volume->availableCapacity));
    }
  }
  liftSystemFoldersOutOfSmallerObjects(root);
}

void liftSystemFoldersOutOfSmallerObjects(ScanNode& root) {
  std::vector<ScanNode*> rootChildren;
  bool lifted = false;
  for (ScanNode* child : root.children()) {
    if (!child->isAggregate()) {
      rootChildren.push_back(child);
      continue;
    }
    std::vector<ScanNode*> kept;
    uint64_t liftedBytes = 0;
    for (ScanNode* inside : child->children()) {
      if (isListedOnItsOwn(inside->name())) {
        inside->setParent(&root);
        rootChildren.push_back(inside);
        liftedBytes += inside->size();
        lifted = true;
      } else {
        kept.push_back(inside);
      }
    }
    if (liftedBytes == 0 && kept.size() == child->children().size()) {
      rootChildren.push_back(child);
      continue;
    }
    child->setChildren(kept);
    child->setSize(child->size() - std::min(child->size(), liftedBytes));
    if (!kept.empty()) rootChildren.push_back(child);
  }
  if (!lifted) return;
  std::stable_sort(rootChildren.begin(), rootChildren.end(), ScanNode::precedes);
  root.setChildren(rootChildren);
}

}  // namespace tw
