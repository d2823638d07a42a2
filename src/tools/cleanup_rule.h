// Analysis tools, the part without widgets: the cleanup rule that decides whether a scanned item is
// worth recommending for cleanup and gives the one-line reason shown for it. Cleanup
// Recommendations, Guided Cleanup and the reports all ask this one function; it reads only the
// node and, for a node without a date, the file's modification date.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scan/scan_node.h"

namespace tw {

// The reasons, as shown.
namespace cleanup_reason {
inline constexpr std::string_view kDSStore = "DS_Store File Removal";
inline constexpr std::string_view kDeviceBackup = "iPhone or iPad backup not updated for 90 days";
inline constexpr std::string_view kXcodeArchive = "Xcode archive older than 6 months";
inline constexpr std::string_view kDerivedData = "Xcode Derived Data inactive for 30 days";
inline constexpr std::string_view kDeviceSupport = "Old Xcode device-support files";
inline constexpr std::string_view kCache =
    "Large cache inactive for 30 days; applications can rebuild it";
inline constexpr std::string_view kTemporary = "Temporary item older than 7 days";
inline constexpr std::string_view kLogFolder = "Large log folder inactive for 90 days";
inline constexpr std::string_view kDownloadedInstaller = "Old downloaded installer or archive";
inline constexpr std::string_view kOldInstaller = "Installer or archive older than 6 months";
inline constexpr std::string_view kOldDownload = "Large download not modified for 6 months";
}  // namespace cleanup_reason

// What the rule needs besides the node.
struct CleanupRuleContext {
  double now = 0;                           // seconds since 1970
  std::string homeFolder;                   // standardized; never recommended itself
  std::vector<std::string> protectedHomes;  // never recommended, nor anything inside
  // The modification date of the file at a path, for nodes that carry none; lstat when empty.
  std::function<std::optional<double>(const std::string& path)> fileModificationDate;

  // The current time, the user's home and the homes protected for this process.
  static CleanupRuleContext forThisProcess();
};

// The reason `node` is recommended for cleanup, or none.
std::optional<std::string_view> cleanupReason(const ScanNode* node,
                                              const CleanupRuleContext& context);

}  // namespace tw
