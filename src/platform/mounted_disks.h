// The disks mounted on this system, as the overview and Settings list them: real block-device
// file systems from /proc/self/mountinfo, each device once, never pseudo, memory or image file
// systems.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

struct MountedDisk {
  std::string mountPath;  // raw bytes, mountinfo's octal escapes decoded
  std::string source;     // "/dev/sda1"
  std::string fileSystemType;
  uint64_t device = 0;   // makedev(major, minor)
  uint64_t mountID = 0;  // mountinfo's first field; 0 for a root mountinfo does not list
};

// The root file system (whatever it is) followed by every other real disk, in mount order. A disk
// is a whole file system (mountinfo's root field "/") or a whole btrfs subvolume; bind mounts of
// a folder, and further mounts of a device already listed, are left out. In a chroot mountinfo
// does not list the root: it is added with `rootDevice` when that is not 0.
std::vector<MountedDisk> parseMountedDisks(std::string_view mountinfo, uint64_t rootDevice = 0);
std::vector<MountedDisk> mountedDisks();  // of this process's mount namespace

// The disk a mount belongs to: the disk itself, or for a bind mount, a further subvolume mount
// or any other mount of a listed disk's device, that disk. `listed` is false when mountinfo has
// no such mount (the root of a chroot); `disk` is empty for mounts of no disk (tmpfs, proc).
struct DiskOfMount {
  bool listed = false;
  std::optional<MountedDisk> disk;
};
DiskOfMount diskOfMount(std::string_view mountinfo, uint64_t mountID, uint64_t rootDevice = 0);

// Where mount `mountID` is mounted (mountinfo's mount point field, decoded); "" when mountinfo
// does not list it.
std::string mountPointOfMount(std::string_view mountinfo, uint64_t mountID);

// This process's mountinfo ("" when /proc is not mounted) and the device of its root.
std::string readMountInfo();
uint64_t rootDevice();

// Whether a disk gets a row of its own without being added: "/", "/home" and below, and below
// "/media", "/run/media" and "/mnt".
bool isDefaultOverviewDisk(const MountedDisk& disk);

}  // namespace tw
