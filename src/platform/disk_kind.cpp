#include "platform/disk_kind.h"

#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace tw {

bool isInternalDisk(uint64_t device) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::path link =
      "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
  const fs::path node = fs::canonical(link, ec);
  if (ec) return true;
  if (node.string().find("/usb") != std::string::npos) return false;
  // A partition's "removable" flag lives on its whole disk, one folder up.
  for (fs::path folder = node; !folder.empty() && folder != folder.root_path();
       folder = folder.parent_path()) {
    std::ifstream in(folder / "removable");
    int removable = 0;
    if (in >> removable) return removable == 0;
  }
  return true;
}

}  // namespace tw
