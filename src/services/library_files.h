// The files of the scan library: how retained scans and cache copies are named, listed, converted
// from legacy archives, copied durably, put in place and pruned. Plain file work with no state of
// its own; ScanLibrary decides when each step runs. Paths are raw bytes.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "store/file_system_calls.h"

namespace tw::library {

// Names inside the library folder (part of its on-disk layout).
inline constexpr const char* kFolderName = "Tarnwell";
inline constexpr const char* kCacheFileName = "LastScan.sqlite";
inline constexpr const char* kLegacyCacheFileName = "LastScan.archive";
inline constexpr const char* kScanMarkerFileName = "ScanInProgress";
inline constexpr const char* kHistoryFolderName = "History";
// "LastScan-%@.pending": a cache copy waiting to replace "LastScan.sqlite".
inline constexpr const char* kPendingCacheFormat = "LastScan-%s.pending";
// "%lld-%@.sqlite": a retained scan, named by its save time in milliseconds and a UUID.
inline constexpr const char* kRetainedScanFormat = "%lld-%s.sqlite";
// A legacy archive's property-list sidecar is the archive's name with this appended.
inline constexpr const char* kLegacySidecarSuffix = ".metadata.plist";
inline constexpr const char* kPendingSuffix = ".pending";
// How many retained scans History keeps, over all locations together.
inline constexpr std::size_t kRetainedScanLimit = 200;
// A ".pending" file untouched for this long was left by a save that never finished.
inline constexpr int kStalePendingSeconds = 10 * 60;

// Names and folders.
// $XDG_DATA_HOME/Tarnwell, without creating it.
std::string defaultFolderPath();
// Creates `path` and its missing parents; failures are left for later file operations to meet.
void createFolders(const std::string& path);
// A new random UUID, upper case with hyphens.
std::string newUUIDString();
// "%lld-%@.sqlite" for a save started at `secondsSince1970`.
std::string retainedScanName(double secondsSince1970, std::string_view uuid);
// "LastScan-%@.pending".
std::string pendingCacheName(std::string_view uuid);
// The time now in seconds since 1970.
double currentTime();

// Retained scans.
// Regular, non-hidden entries of `folder` whose extension is "sqlite" in any case, as full paths
// in numeric-aware name order (oldest save first). Empty when the folder can't be read.
std::vector<std::string> listRetainedScans(const std::string& folder);
// Converts every legacy archive in `folder` into a scan database beside it, removes archives whose
// database checks out, then lists the retained scans. The first problem goes to `firstProblem`
// unless that already holds one.
std::vector<std::string> convertLegacyRetainedScans(const std::string& folder,
                                                    std::optional<Error>* firstProblem);
// Deletes retained scans from the oldest end until at most `limit` remain; errors are ignored.
// Returns how many were deleted.
std::size_t pruneRetainedScans(const std::string& folder, std::size_t limit = kRetainedScanLimit);

// Copying and replacing, through `calls` so tests can make any step fail.
// Copies `from` to a new file `to` and flushes it to disk; a partial copy is removed.
bool copyFileDurably(const std::string& from, const std::string& to, const FileSystemCalls& calls,
                     Error* error);
// Renames `pending` over `destination`, first giving it the replaced file's permissions.
bool replaceFile(const std::string& pending, const std::string& destination,
                 const FileSystemCalls& calls, Error* error);
// Makes renames in `folder` durable; failures change nothing and are not reported.
void flushFolder(const std::string& folder, const FileSystemCalls& calls);
// Removes regular files of `folder` (not below it) whose names end in ".pending" and which were
// last modified at least `ageSeconds` before `now`. Returns how many were removed.
int removeStalePendingFiles(const std::string& folder, std::time_t now,
                            int ageSeconds = kStalePendingSeconds);

// Existence of a path (any kind of entry, links not followed).
bool pathExists(const std::string& path);

}  // namespace tw::library
