// How much of the file system this process may read. Linux has no privacy database: complete
// access means running as root or holding CAP_DAC_READ_SEARCH, and a disk counts as unlocked when
// its mount point can be listed and entered.
#pragma once

#include <string>
#include <string_view>

namespace tw {

// Whether the process may read every folder: effective user root, or CAP_DAC_READ_SEARCH in the
// effective capability set.
bool hasFullDiskAccess();
// Whether the "CapEff:" line of a /proc/<pid>/status text holds CAP_DAC_READ_SEARCH.
bool statusGrantsDacReadSearch(std::string_view procStatus);
// Whether the process may list and enter the folder `path` (checked with the effective ids).
bool isReadableAndSearchable(const std::string& path);

}  // namespace tw
