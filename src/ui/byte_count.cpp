#include "ui/byte_count.h"

#include <cstdio>

namespace tw {

std::string formatByteCount(uint64_t bytes) {
  if (bytes == 0) return "0";
  char buf[64];
  if (bytes < 1000) {
    std::snprintf(buf, sizeof buf, "%llu B", static_cast<unsigned long long>(bytes));
    return buf;
  }
  static const char* const kUnits[] = {"B", "KB", "MB", "GB", "TB", "PB"};
  double value = static_cast<double>(bytes);
  int unit = 0;
  while (value >= 1000 && unit + 1 < 6) {
    value /= 1000;
    ++unit;
  }
  std::snprintf(buf, sizeof buf, "%.1f %s", value, kUnits[unit]);
  return buf;
}

}  // namespace tw
