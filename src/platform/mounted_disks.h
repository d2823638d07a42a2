// The disks mounted on this system, as the overview and Settings list them: real block-device
// file systems from /proc/self/mountinfo, each device once, never pseudo, memory or image file
// systems.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

struct MountedDisk {
  std::string mountPath;  // raw bytes, mountinfo's octal escapes decoded
  std::string source;     // "/dev/sda1"
  std::string fileSystemType;
  uint64_t device = 0;  // makedev(major, minor)
};

// The root file system (whatever it is) followed by every other real disk, in mount order.
// A device already listed (bind mounts, btrfs subvolume mounts) is left out.
std::vector<MountedDisk> parseMountedDisks(std::string_view mountinfo);
std::vector<MountedDisk> mountedDisks();  // of this process's mount namespace

// Whether a disk gets a row of its own without being added: "/", "/home" and below, and below
// "/media", "/run/media" and "/mnt".
bool isDefaultOverviewDisk(const MountedDisk& disk);

}  // namespace tw
