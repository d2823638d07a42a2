#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "platform/mounted_disks.h"
#include "platform/paths.h"
#include "platform/volume_layout.h"

namespace tw {

std::string CloneAttributes::key() const {
  char buf[48];
  std::snprintf(buf, sizeof buf, "%u:%llu", device, static_cast<unsigned long long>(cloneID));
  return buf;
}

bool isPackageName(std::string_view name) {
  static constexpr std::array<std::string_view, 18> kExtensions = {
      "app",  "bundle",    "framework",   "plugin",     "appex", "kext",
      "xpc",  "prefpane",  "qlgenerator", "mdimporter", "saver", "photoslibrary",
      "rtfd", "xcodeproj", "xcworkspace", "playground", "pkg",   "mpkg"};
  const std::string ext = fileExtension(name);
  for (std::string_view known : kExtensions)
    if (ext == known) return true;
  return false;
}

namespace {

std::string labelForDevice(const std::string& source) {
  std::error_code ec;
  if (source.empty() || source.front() != '/') return {};
  auto device = std::filesystem::canonical(source, ec);
  if (ec) return {};
  for (const auto& link : std::filesystem::directory_iterator("/dev/disk/by-label", ec)) {
    std::error_code linkError;
    if (std::filesystem::canonical(link.path(), linkError) != device || linkError) continue;
    // udev escapes unusual characters as \xHH.
    std::string name = link.path().filename().string(), out;
    for (std::size_t i = 0; i < name.size(); ++i) {
      if (name.compare(i, 2, "\\x") == 0 && i + 3 < name.size()) {
        out.push_back(static_cast<char>(std::stoi(name.substr(i + 2, 2), nullptr, 16)));
        i += 3;
      } else {
        out.push_back(name[i]);
      }
    }
    return out;
  }
  return {};
}

class LinuxVolumeLayout final : public VolumeLayout {
 public:
  explicit LinuxVolumeLayout(std::function<std::string()> readMountInfo)
      : readMountInfo_(readMountInfo ? std::move(readMountInfo) : tw::readMountInfo) {}

  // A scan root is a disk only at the mount point of a listed disk. A bind mount or a further
  // subvolume mount belongs to the disk of its device, so it is scanned as a folder. A mount
  // mountinfo does not list holds the root of a chroot or container: that is the root disk.
  std::optional<VolumeInfo> volumeForPath(const std::string& path) const override {
    struct statx st {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_MNT_ID, &st) != 0) return std::nullopt;
    const uint64_t mountID = (st.stx_mask & STATX_MNT_ID) ? st.stx_mnt_id : 0;
    const DiskOfMount place = diskOfMount(readMountInfo_(), mountID, rootDevice());
    if (place.listed && !place.disk) return std::nullopt;
    VolumeInfo info;
    info.mountPath = place.disk ? place.disk->mountPath : "/";
    if (place.disk) info.name = labelForDevice(place.disk->source);
    if (info.name.empty())
      info.name =
          info.mountPath == "/" ? "Root Disk" : std::string(displayNameForPath(info.mountPath));
    // The path lies on the disk's file system, so its own figures are the disk's.
    struct statvfs vfs {};
    if (statvfs(path.c_str(), &vfs) == 0) {
      info.totalCapacity = uint64_t{vfs.f_blocks} * vfs.f_frsize;
      info.availableCapacity = uint64_t{vfs.f_bavail} * vfs.f_frsize;
      info.availableForImportantUsage =
          std::max(info.availableCapacity, uint64_t{vfs.f_bfree} * vfs.f_frsize);
    }
    return info;
  }

  bool mayHaveClones(int dirfd) const override {
    struct statfs fs {};
    if (fstatfs(dirfd, &fs) != 0) return false;
    constexpr unsigned long kBcachefsMagic = 0xca451a4e;
    const auto type = static_cast<unsigned long>(fs.f_type);
    return type == BTRFS_SUPER_MAGIC || type == XFS_SUPER_MAGIC || type == kBcachefsMagic;
  }

  std::optional<CloneAttributes> cloneAttributes(int dirfd, const char* name,
                                                 const struct statx& st) const override {
    return fiemapCloneAttributes(dirfd, name, st);
  }

  // Shared extents make a file a clone; only large regular files are asked, since small files on
  // a snapshotted btrfs would all look shared.
  static std::optional<CloneAttributes> fiemapCloneAttributes(int dirfd, const char* name,
                                                              const struct statx& st) {
    constexpr uint64_t kMinimumAllocated = 1 << 20;
    const uint64_t allocated = st.stx_blocks * 512;
    if (!S_ISREG(st.stx_mode) || allocated < kMinimumAllocated) return std::nullopt;
    int fd = openat(dirfd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    struct stat now {};
    if (fstat(fd, &now) != 0 || !S_ISREG(now.st_mode) || now.st_ino != st.stx_ino) {
      close(fd);
      return std::nullopt;
    }
    constexpr unsigned kExtents = 64;
    alignas(
        struct fiemap) char buffer[sizeof(struct fiemap) + kExtents * sizeof(struct fiemap_extent)];
    auto* map = reinterpret_cast<struct fiemap*>(buffer);
    uint64_t start = 0, shared = 0, firstShared = 0;
    bool haveShared = false, last = false;
    while (!last) {
      std::memset(buffer, 0, sizeof buffer);
      map->fm_start = start;
      map->fm_length = FIEMAP_MAX_OFFSET - start;
      map->fm_extent_count = kExtents;
      if (ioctl(fd, FS_IOC_FIEMAP, map) != 0 || map->fm_mapped_extents == 0) break;
      for (unsigned i = 0; i < map->fm_mapped_extents; ++i) {
        const struct fiemap_extent& e = map->fm_extents[i];
        if (e.fe_flags & FIEMAP_EXTENT_SHARED) {
          if (!haveShared) firstShared = e.fe_physical;
          haveShared = true;
          shared += e.fe_length;
        }
        if (e.fe_flags & FIEMAP_EXTENT_LAST) last = true;
        start = e.fe_logical + e.fe_length;
      }
    }
    close(fd);
    if (!haveShared) return std::nullopt;
    CloneAttributes attributes;
    attributes.privateSize = allocated > shared ? allocated - shared : 0;
    attributes.device = static_cast<uint32_t>(makedev(st.stx_dev_major, st.stx_dev_minor));
    attributes.cloneID = firstShared;
    attributes.referenceCount = 2;
    return attributes;
  }

 private:
  std::function<std::string()> readMountInfo_;
};

}  // namespace

std::shared_ptr<VolumeLayout> makeLinuxVolumeLayout(std::function<std::string()> readMountInfo) {
  return std::make_shared<LinuxVolumeLayout>(std::move(readMountInfo));
}

}  // namespace tw
