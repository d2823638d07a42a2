// The system's own folders, which Tarnwell never offers to move to the Trash: the locations of the
// original macOS list (kept, so scans made there are judged alike) and the Linux system folders.
// Disks mounted below /run/media/ and /media/ stay usable.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tw {

// Whether the standardized `path` is a protected system location or lies inside one (exact,
// case-sensitive comparisons).
bool isProtectedSystemPath(std::string_view path);

// Homes protected like system folders: when Tarnwell runs as root through pkexec, the home of
// the user who started it (PKEXEC_UID); otherwise none.
std::vector<std::string> protectedHomeFolders();

}  // namespace tw
