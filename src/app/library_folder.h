// The library folder: where Tarnwell keeps its saved scans and its lock, "Tarnwell" in
// $XDG_DATA_HOME (normally ~/.local/share/Tarnwell). Paths are raw bytes.
#pragma once

#include <ctime>
#include <string>

namespace tw {

// File and folder names inside the library folder (part of its on-disk layout).
inline constexpr const char* kLastScanFileName = "LastScan.sqlite";
inline constexpr const char* kLegacyLastScanFileName = "LastScan.archive";
inline constexpr const char* kScanMarkerFileName = "ScanInProgress";
inline constexpr const char* kInstanceLockFileName = "Instance.lock";
inline constexpr const char* kHistoryFolderName = "History";
inline constexpr const char* kPendingSuffix = ".pending";

// Locations; the folders are created, with their parents, whenever they are asked for (a failure
// is left for the file operations that follow to report).
std::string libraryFolderPath();
std::string historyFolderPath();
std::string instanceLockPath();
std::string scanMarkerPath();

// Deletes a scan marker left by a scan that never ended; returns whether one was removed.
bool discardInterruptedScanIfNeeded();

// How old an unfinished ".pending" file must be before it counts as left behind by a crash.
inline constexpr int kStalePendingSeconds = 10 * 60;
// Removes regular files in `folder` (not below it) whose names end in ".pending" and whose
// modification time is at least `ageSeconds` before `now`. Returns how many were removed.
int removeStalePendingFiles(const std::string& folder, std::time_t now,
                            int ageSeconds = kStalePendingSeconds);
// The same for the library folder and its History, as done once the instance lock is held.
int removeStalePendingLibraryFiles(std::time_t now);

}  // namespace tw
