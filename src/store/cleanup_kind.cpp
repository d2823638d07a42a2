#include "store/cleanup_kind.h"

#include <array>

namespace tw {

std::optional<std::string_view> cleanupKind(std::string_view lowerPath, std::string_view lowerName,
                                            std::string_view extension, bool isDirectory) {
  auto contains = [lowerPath](std::string_view part) {
    return lowerPath.find(part) != std::string_view::npos;
  };
  if (!isDirectory && lowerName == ".ds_store") return "ds_store";
  // Every macOS developer, cache and log location lies below a "/library/" folder.
  const bool inLibrary = contains("/library/");
  if (inLibrary) {
    if (contains("/library/application support/mobilesync/backup/")) return "mobile_backup";
    if (contains("/library/developer/xcode/archives/")) return "xcode_archive";
    if (contains("/library/developer/xcode/deriveddata/")) return "derived_data";
    if (contains("/library/developer/xcode/ios devicesupport/")) return "device_support";
    if (contains("/library/caches/")) return "cache";
  }
  if (contains("/.cache/")) return "cache";
  if (inLibrary && contains("/library/logs/")) return "log";
  if (lowerPath.starts_with("/private/tmp/") || lowerPath.starts_with("/private/var/tmp/"))
    return "temporary";
  if (lowerPath.starts_with("/tmp/")) return "temporary";
  if (!isDirectory) {
    static constexpr std::array<std::string_view, 9> kArchives = {"dmg", "pkg", "zip", "rar", "7z",
                                                                  "iso", "tar", "gz",  "xz"};
    for (std::string_view archive : kArchives)
      if (extension == archive) return "archive";
  }
  if (contains("/downloads/")) return "download";
  return std::nullopt;
}

}  // namespace tw
