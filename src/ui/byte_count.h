// Shared formatting: the one byte-count text used wherever a size is shown, in decimal units.
#pragma once

#include <cstdint>
#include <string>

namespace tw {

// "0" for 0, "%llu B" below 1000, otherwise "%.1f %@" with KB, MB, GB, TB or PB (powers of 1000).
std::string formatByteCount(uint64_t bytes);

}  // namespace tw
