// The disk list of the running system: mounted real disks with their labels and space figures.
#include "overview/overview_controller.h"
#include "platform/disk_kind.h"
#include "platform/mounted_disks.h"
#include "platform/paths.h"
#include "platform/volume_layout.h"

namespace tw {

std::vector<OverviewDisk> systemOverviewDisks() {
  const std::shared_ptr<VolumeLayout> layout = makeLinuxVolumeLayout();
  std::vector<OverviewDisk> disks;
  for (const MountedDisk& mounted : mountedDisks()) {
    OverviewDisk disk;
    disk.path = standardizePath(mounted.mountPath);
    disk.defaultRow = isDefaultOverviewDisk(mounted);
    disk.internal = isInternalDisk(mounted.device);
    if (std::optional<VolumeInfo> info = layout->volumeForPath(disk.path);
        info && standardizePath(info->mountPath) == disk.path) {
      disk.name = info->name;
      disk.totalCapacity = info->totalCapacity;
      disk.availableCapacity = info->availableCapacity;
      disk.availableForImportantUsage = info->availableForImportantUsage;
    }
    if (disk.name.empty())
      disk.name = disk.path == "/" ? kStartupDiskName : std::string(displayNameForPath(disk.path));
    disks.push_back(std::move(disk));
  }
  return disks;
}

}  // namespace tw
