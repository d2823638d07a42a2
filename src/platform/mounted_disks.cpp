#include "platform/mounted_disks.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "platform/paths.h"

namespace tw {

namespace {

// mountinfo writes space, tab, newline and backslash as "\ooo".
std::string unescapeField(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() &&
        std::all_of(field.begin() + i + 1, field.begin() + i + 4,
                    [](char c) { return c >= '0' && c <= '7'; })) {
      out.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                      (field[i + 3] - '0')));
      i += 3;
    } else {
      out.push_back(field[i]);
    }
  }
  return out;
}

std::vector<std::string_view> splitSpaces(std::string_view line) {
  std::vector<std::string_view> fields;
  std::size_t at = 0;
  while (at < line.size()) {
    std::size_t end = line.find(' ', at);
    if (end == std::string_view::npos) end = line.size();
    if (end > at) fields.push_back(line.substr(at, end - at));
    at = end + 1;
  }
  return fields;
}

bool isRealDiskType(std::string_view type, std::string_view source) {
  // Image and memory file systems can sit on /dev/loop* or /dev/zram*; they are not disks.
  static constexpr std::array<std::string_view, 5> kNotDisks = {"squashfs", "iso9660", "udf",
                                                                "erofs", "zram"};
  if (!source.starts_with("/dev/")) return false;
  return std::find(kNotDisks.begin(), kNotDisks.end(), type) == kNotDisks.end();
}

}  // namespace

std::vector<MountedDisk> parseMountedDisks(std::string_view mountinfo) {
  struct Candidate {
    MountedDisk disk;
    bool wholeFileSystem = false;  // mountinfo's root field is "/": not a bind or subvolume mount
  };
  std::vector<Candidate> candidates;
  std::vector<MountedDisk> root;
  std::size_t at = 0;
  while (at < mountinfo.size()) {
    std::size_t end = mountinfo.find('\n', at);
    if (end == std::string_view::npos) end = mountinfo.size();
    std::vector<std::string_view> f = splitSpaces(mountinfo.substr(at, end - at));
    at = end + 1;
    // id parent major:minor root mountpoint options [optional...] - type source superoptions
    auto dash = std::find(f.begin(), f.end(), std::string_view("-"));
    if (f.size() < 5 || dash == f.end() || f.end() - dash < 3) continue;
    MountedDisk disk;
    disk.mountPath = unescapeField(f[4]);
    disk.fileSystemType = std::string(*(dash + 1));
    disk.source = unescapeField(*(dash + 2));
    unsigned major = 0, minor = 0;
    if (std::sscanf(std::string(f[2]).c_str(), "%u:%u", &major, &minor) != 2) continue;
    disk.device = makedev(major, minor);
    if (disk.mountPath == "/") {
      root.assign(1, disk);  // the last mount on "/" is the one in effect
    } else if (isRealDiskType(disk.fileSystemType, disk.source)) {
      candidates.push_back({std::move(disk), f[3] == "/"});
    }
  }
  // One row per device: its whole-file-system mount if it has one, else its first mount; rows
  // keep mount order.
  std::vector<MountedDisk> out = root;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const Candidate& c = candidates[i];
    auto sameDevice = [&](const auto& other) { return other.disk.device == c.disk.device; };
    if (!root.empty() && root.front().device == c.disk.device) continue;
    auto preferred = std::find_if(candidates.begin(), candidates.end(), [&](const Candidate& o) {
      return sameDevice(o) && o.wholeFileSystem;
    });
    if (preferred == candidates.end())
      preferred = std::find_if(candidates.begin(), candidates.end(), sameDevice);
    if (preferred - candidates.begin() == static_cast<std::ptrdiff_t>(i)) out.push_back(c.disk);
  }
  return out;
}

std::vector<MountedDisk> mountedDisks() {
  std::ifstream in("/proc/self/mountinfo");
  std::stringstream text;
  text << in.rdbuf();
  return parseMountedDisks(text.str());
}

bool isDefaultOverviewDisk(const MountedDisk& disk) {
  const std::string& p = disk.mountPath;
  return p == "/" || isSameOrInside(p, "/home") || isInside(p, "/media") ||
         isInside(p, "/run/media") || isInside(p, "/mnt");
}

}  // namespace tw
