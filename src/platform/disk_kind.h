// Whether a mounted disk is built into the machine: its block device is not removable and not
// attached over USB, as /sys describes it.
#pragma once

#include <cstdint>

namespace tw {

// `device` is the disk's makedev(major, minor); a device /sys does not describe counts as internal.
bool isInternalDisk(uint64_t device);

}  // namespace tw
