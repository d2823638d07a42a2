#include "tools/cleanup_rule.h"

#include <sys/stat.h>

#include <array>
#include <chrono>

#include "platform/paths.h"
#include "platform/protected_locations.h"

namespace tw {

namespace {

constexpr uint64_t kLargeBytes = 104857600;     // 100 MiB
constexpr uint64_t kTemporaryBytes = 10485760;  // 10 MiB
constexpr double kDaySeconds = 86400;

constexpr std::array<std::string_view, 9> kInstallerExtensions = {"dmg", "pkg", "zip", "rar", "7z",
                                                                  "iso", "tar", "gz",  "xz"};

std::optional<double> lstatModificationDate(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
  return static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9;
}

// The item directly inside the first `marker` folder of `lower`: something follows the marker
// and holds no further "/".
bool isDirectChildOf(std::string_view lower, std::string_view marker) {
  const std::size_t at = lower.find(marker);
  if (at == std::string_view::npos) return false;
  const std::string_view rest = lower.substr(at + marker.size());
  return !rest.empty() && rest.find('/') == std::string_view::npos;
}

// An item directly inside a user's cache folder, "/home/NAME/.cache/ITEM".
bool isDirectChildOfHomeCache(std::string_view lower) {
  constexpr std::string_view kHome = "/home/";
  if (!lower.starts_with(kHome)) return false;
  const std::string_view rest = lower.substr(kHome.size());
  const std::size_t slash = rest.find('/');
  if (slash == 0 || slash == std::string_view::npos) return false;
  constexpr std::string_view kCache = ".cache/";
  const std::string_view inHome = rest.substr(slash + 1);
  if (!inHome.starts_with(kCache)) return false;
  const std::string_view item = inHome.substr(kCache.size());
  return !item.empty() && item.find('/') == std::string_view::npos;
}

bool isProtected(const std::string& path, const CleanupRuleContext& context) {
  if (path.empty() || path == "/" || path == standardizePath(context.homeFolder)) return true;
  if (isProtectedSystemPath(path)) return true;
  for (const std::string& home : context.protectedHomes)
    if (isSameOrInside(path, standardizePath(home))) return true;
  return false;
}

}  // namespace

CleanupRuleContext CleanupRuleContext::forThisProcess() {
  CleanupRuleContext context;
  context.now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  context.homeFolder = standardizePath(homeDirectory());
  context.protectedHomes = protectedHomeFolders();
  return context;
}

std::optional<std::string_view> cleanupReason(const ScanNode* node,
                                              const CleanupRuleContext& context) {
  namespace reason = cleanup_reason;
  if (!node || node->isVirtualNode() || node->isAggregate() || node->size() == 0)
    return std::nullopt;
  const std::string path = standardizePath(standardizePath(node->path()));
  if (isProtected(path, context)) return std::nullopt;
  const std::string lower = asciiLowercase(path);
  auto contains = [&lower](std::string_view part) { return lower.find(part) != std::string::npos; };
  // Inactive for `days` days: modified strictly before that many days ago.
  auto inactiveFor = [&](double days) {
    std::optional<double> date;
    if (node->hasModificationDate()) {
      date = node->modificationDate();
    } else {
      date = context.fileModificationDate ? context.fileModificationDate(path)
                                          : lstatModificationDate(path);
    }
    return date && *date < context.now - days * kDaySeconds;
  };
  const bool folder = node->isDirectory();
  const bool large = node->size() >= kLargeBytes;
  const std::string extension = fileExtension(displayNameForPath(path));

  if (!folder && asciiLowercase(node->name()) == ".ds_store") return reason::kDSStore;
  if (folder && large &&
      isDirectChildOf(lower, "/library/application support/mobilesync/backup/") && inactiveFor(90))
    return reason::kDeviceBackup;
  if (folder && large && contains("/library/developer/xcode/archives/") &&
      extension == "xcarchive" && inactiveFor(180))
    return reason::kXcodeArchive;
  if (folder && large && isDirectChildOf(lower, "/library/developer/xcode/deriveddata/") &&
      inactiveFor(30))
    return reason::kDerivedData;
  if (folder && large && isDirectChildOf(lower, "/library/developer/xcode/ios devicesupport/") &&
      inactiveFor(180))
    return reason::kDeviceSupport;
  const bool libraryCache = isDirectChildOf(lower, "/library/caches/") &&
                            (lower.starts_with("/users/") || lower.starts_with("/library/caches/"));
  if (folder && (libraryCache || isDirectChildOfHomeCache(lower)) && large && inactiveFor(30))
    return reason::kCache;
  if ((isDirectChildOf(lower, "/private/tmp/") || isDirectChildOf(lower, "/private/var/tmp/")) &&
      node->size() >= kTemporaryBytes && inactiveFor(7))
    return reason::kTemporary;
  if (folder && isDirectChildOf(lower, "/library/logs/") &&
      (lower.starts_with("/users/") || lower.starts_with("/library/logs/")) && large &&
      inactiveFor(90))
    return reason::kLogFolder;
  if (!folder && large && inactiveFor(180)) {
    const bool download = contains("/downloads/");
    for (std::string_view installer : kInstallerExtensions)
      if (extension == installer)
        return download ? reason::kDownloadedInstaller : reason::kOldInstaller;
    if (download) return reason::kOldDownload;
  }
  return std::nullopt;
}

}  // namespace tw
