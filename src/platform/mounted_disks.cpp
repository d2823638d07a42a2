#include "platform/mounted_disks.h"

#include <sys/stat.h>
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

std::vector<std::string_view> splitOptions(std::string_view options) {
  std::vector<std::string_view> out;
  for (std::size_t at = 0; at <= options.size();) {
    std::size_t end = std::min(options.find(',', at), options.size());
    out.push_back(options.substr(at, end - at));
    at = end + 1;
  }
  return out;
}

bool isRealDiskType(std::string_view type, std::string_view source) {
  // Image and memory file systems can sit on /dev/loop* or /dev/zram*; they are not disks.
  static constexpr std::array<std::string_view, 5> kNotDisks = {"squashfs", "iso9660", "udf",
                                                                "erofs", "zram"};
  if (!source.starts_with("/dev/")) return false;
  return std::find(kNotDisks.begin(), kNotDisks.end(), type) == kNotDisks.end();
}

// One line of mountinfo:
//   id parent major:minor root mountpoint options [optional...] - type source superoptions
struct MountLine {
  MountedDisk disk;
  std::string root;       // the folder of the file system shown at the mount point
  std::string subvolume;  // btrfs: the "subvol=" super option
};

std::vector<MountLine> parseLines(std::string_view mountinfo) {
  std::vector<MountLine> lines;
  std::size_t at = 0;
  while (at < mountinfo.size()) {
    std::size_t end = mountinfo.find('\n', at);
    if (end == std::string_view::npos) end = mountinfo.size();
    std::vector<std::string_view> f = splitSpaces(mountinfo.substr(at, end - at));
    at = end + 1;
    auto dash = std::find(f.begin(), f.end(), std::string_view("-"));
    if (f.size() < 5 || dash == f.end() || f.end() - dash < 3) continue;
    MountLine line;
    unsigned long long id = 0;
    unsigned major = 0, minor = 0;
    if (std::sscanf(std::string(f[0]).c_str(), "%llu", &id) != 1 ||
        std::sscanf(std::string(f[2]).c_str(), "%u:%u", &major, &minor) != 2)
      continue;
    line.disk.mountID = id;
    line.disk.device = makedev(major, minor);
    line.root = unescapeField(f[3]);
    line.disk.mountPath = unescapeField(f[4]);
    line.disk.fileSystemType = std::string(*(dash + 1));
    line.disk.source = unescapeField(*(dash + 2));
    if (f.end() - dash > 3) {
      for (std::string_view option : splitOptions(*(dash + 3)))
        if (option.starts_with("subvol=")) line.subvolume = unescapeField(option.substr(7));
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

// A whole file system, or a whole btrfs subvolume; not a bind mount of a folder inside one.
bool isWholeMount(const MountLine& line) {
  return line.root == "/" || (line.disk.fileSystemType == "btrfs" && line.root == line.subvolume);
}

std::vector<MountedDisk> listDisks(const std::vector<MountLine>& lines, uint64_t rootDevice) {
  std::vector<MountedDisk> out;
  for (const MountLine& line : lines)
    if (line.disk.mountPath == "/") out.assign(1, line.disk);  // the last mount on "/" is in effect
  if (out.empty() && rootDevice != 0) out.push_back(MountedDisk{"/", "", "", rootDevice, 0});
  auto listed = [&out](uint64_t device) {
    return std::any_of(out.begin(), out.end(),
                       [device](const MountedDisk& d) { return d.device == device; });
  };
  // One row per device: its mount of the whole file system if it has one, else its first whole
  // subvolume mount; rows keep mount order.
  std::vector<const MountLine*> chosen;
  for (const MountLine& line : lines) {
    if (line.disk.mountPath == "/" || !isWholeMount(line) || listed(line.disk.device) ||
        !isRealDiskType(line.disk.fileSystemType, line.disk.source))
      continue;
    auto same = std::find_if(chosen.begin(), chosen.end(), [&](const MountLine* c) {
      return c->disk.device == line.disk.device;
    });
    if (same == chosen.end()) {
      chosen.push_back(&line);
    } else if ((*same)->root != "/" && line.root == "/") {
      *same = &line;
    }
  }
  std::sort(chosen.begin(), chosen.end());  // lines are in mount order
  for (const MountLine* line : chosen) out.push_back(line->disk);
  return out;
}

}  // namespace

std::vector<MountedDisk> parseMountedDisks(std::string_view mountinfo, uint64_t rootDevice) {
  return listDisks(parseLines(mountinfo), rootDevice);
}

DiskOfMount diskOfMount(std::string_view mountinfo, uint64_t mountID, uint64_t rootDevice) {
  const std::vector<MountLine> lines = parseLines(mountinfo);
  auto line = std::find_if(lines.begin(), lines.end(),
                           [mountID](const MountLine& l) { return l.disk.mountID == mountID; });
  DiskOfMount result;
  if (line == lines.end()) return result;
  result.listed = true;
  const std::vector<MountedDisk> disks = listDisks(lines, rootDevice);
  auto disk = std::find_if(disks.begin(), disks.end(),
                           [mountID](const MountedDisk& d) { return d.mountID == mountID; });
  if (disk == disks.end()) {
    disk = std::find_if(disks.begin(), disks.end(),
                        [&line](const MountedDisk& d) { return d.device == line->disk.device; });
  }
  if (disk != disks.end()) result.disk = *disk;
  return result;
}

std::string mountPointOfMount(std::string_view mountinfo, uint64_t mountID) {
  for (const MountLine& line : parseLines(mountinfo))
    if (line.disk.mountID == mountID) return line.disk.mountPath;
  return {};
}

std::string readMountInfo() {
  std::ifstream in("/proc/self/mountinfo");
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

uint64_t rootDevice() {
  struct stat st {};
  return ::stat("/", &st) == 0 ? st.st_dev : 0;
}

std::vector<MountedDisk> mountedDisks() {
  return parseMountedDisks(readMountInfo(), rootDevice());
}

bool isDefaultOverviewDisk(const MountedDisk& disk) {
  const std::string& p = disk.mountPath;
  return p == "/" || isSameOrInside(p, "/home") || isInside(p, "/media") ||
         isInside(p, "/run/media") || isInside(p, "/mnt");
}

}  // namespace tw
