// tarnwell-scan --open FILE --trash PATH…: a cleanup without a window, on a saved scan.
#pragma once

#include <string>
#include <vector>

namespace tw {

// Moves `paths` (absolute) to the Trash when every one passes the safety check against the saved
// scan's location, marks them deleted in `file`, and prints "ORIGINAL → TRASHED" per item, or with
// `json` one line of figures. Returns the exit status: 0, or 1 with the reason on standard error.
int trashSavedScanItems(const std::string& file, const std::vector<std::string>& paths, bool json);

}  // namespace tw
