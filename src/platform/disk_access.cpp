#include "platform/disk_access.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace tw {

namespace {
constexpr int kCapDacReadSearch = 2;  // linux/capability.h
}

bool statusGrantsDacReadSearch(std::string_view procStatus) {
  constexpr std::string_view kKey = "CapEff:";
  std::size_t at = 0;
  while (at < procStatus.size()) {
    std::size_t end = procStatus.find('\n', at);
    if (end == std::string_view::npos) end = procStatus.size();
    std::string_view line = procStatus.substr(at, end - at);
    if (line.starts_with(kKey)) {
      std::string hex(line.substr(kKey.size()));
      char* stop = nullptr;
      const uint64_t mask = std::strtoull(hex.c_str(), &stop, 16);
      return stop != hex.c_str() && (mask >> kCapDacReadSearch) & 1;
    }
    at = end + 1;
  }
  return false;
}

bool hasFullDiskAccess() {
  if (geteuid() == 0) return true;
  std::ifstream in("/proc/self/status");
  std::stringstream text;
  text << in.rdbuf();
  return statusGrantsDacReadSearch(text.str());
}

bool isReadableAndSearchable(const std::string& path) {
  return !path.empty() && faccessat(AT_FDCWD, path.c_str(), R_OK | X_OK, AT_EACCESS) == 0;
}

}  // namespace tw
