// App services: the scan library.
//
// ScanLibrary owns the library folder ($XDG_DATA_HOME/Tarnwell) and what lives in it: the current
// scan cache "LastScan.sqlite", the retained scans in "History", the "ScanInProgress" marker and
// the legacy archives of earlier versions. It also owns the current result (`cachedRoot`) and the
// scan generation, which together decide whether a finished save may replace the cache. Every
// finished scan enters History under a new name and is copied to the cache through a pending file
// and an atomic rename, so a crash leaves the old cache or the new one, never a partial file.
//
// It is used from the GUI thread. File work (writing, copying, renaming, converting, reading
// metadata, deleting, freeing replaced trees) runs on a thread pool and comes back through the GUI
// executor; a callback whose library is gone by then does nothing. Which copy may become the cache
// is decided on the GUI thread; the pool carries the choices out in the order they were made.
// Alerts are handed to the shell as data; failures the user can do nothing about go to the log
// (stderr).
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "scan/directory_scanner.h"
#include "scan/scan_node.h"
#include "store/file_system_calls.h"

namespace tw {

// A warning the shell shows as a window-modal sheet with one "OK" button.
struct LibraryAlert {
  std::string message;
  std::string informativeText;
  bool operator==(const LibraryAlert&) const = default;
};

// Texts of the library's alerts and of the forget prompt.
inline constexpr const char* kUnreadableScanMessage = "A saved scan could not be read";
inline constexpr const char* kUnreadableScanInformativeFormat =
    "Tarnwell restored every readable scan, but one scan database had a problem. %@";
inline constexpr const char* kForgetPromptMessage = "Forget this scan result?";
inline constexpr const char* kForgetPromptInformativeText =
    "Delete removes the saved scan database from disk. Forget keeps it in Scan History but removes "
    "it from the main screen.";
inline constexpr const char* kForgetDeleteButton = "Delete";  // destructive
inline constexpr const char* kForgetForgetButton = "Forget";
inline constexpr const char* kForgetCancelButton = "Cancel";
inline constexpr const char* kDeleteFailedMessage = "The saved scan could not be deleted";
inline constexpr const char* kDeleteFailedFallbackText = "The scan database is still on disk.";
inline constexpr const char* kCacheDeleteFailedMessage =
    "The scan was deleted from History, but its current cache could not be removed";
inline constexpr const char* kCacheDeleteFailedFallbackText =
    "Restarting Tarnwell may show this scan again.";
// Log lines (stderr).
inline constexpr const char* kReplaceCacheFailedLog =
    "Unable to replace the current scan cache: %@";
inline constexpr const char* kWriteScanFailedLog = "Unable to save the scan database: %@";
inline constexpr const char* kCopyScanFailedLog =
    "Unable to copy the scan for the current cache: %@";

// The three answers to the forget prompt, in the prompt's button order.
enum class ForgetChoice { kDelete, kForget, kCancel };

// What became of one save.
struct SaveOutcome {
  std::string historyPath;     // the retained scan's file
  bool written = false;        // the History file is complete
  bool bound = false;          // the root now reads through its History copy
  bool copied = false;         // the pending cache copy was complete
  bool cacheReplaced = false;  // "LastScan.sqlite" now holds this scan
};

// What the start-up restore found.
struct RestoreOutcome {
  std::vector<ScanNodeRef> roots;  // newest first, one per location
  std::optional<LibraryAlert> alert;
};

class ScanLibrary {
 public:
  struct Options {
    std::string folder;                      // the library folder; empty: $XDG_DATA_HOME/Tarnwell
    Executor mainExecutor;                   // runs callbacks on the GUI thread; default inline
    Executor backgroundExecutor;             // runs file work; default the global thread pool
    const FileSystemCalls* calls = nullptr;  // writes, copies and renames; default the system's
    std::function<void(const std::string& line)> log;  // default: a line on stderr
  };
  // What the shell installs: the overview's two entry points and the alert sheet.
  struct Handlers {
    std::function<void(const std::vector<ScanNodeRef>& rootsNewestFirst)> restoreCachedScanRoots;
    std::function<void(const ScanNodeRef& root)> forgetCachedScanRoot;
    std::function<void(const LibraryAlert& alert)> showAlert;
  };

  ScanLibrary();
  explicit ScanLibrary(Options options);
  ~ScanLibrary();
  ScanLibrary(const ScanLibrary&) = delete;
  ScanLibrary& operator=(const ScanLibrary&) = delete;
  void setHandlers(Handlers handlers);

  // Locations. Each folder is created, with its parents, whenever it is asked for.
  std::string libraryFolderPath() const;
  std::string cachePath() const;
  std::string legacyCachePath() const;
  std::string scanMarkerPath() const;
  std::string historyDirectoryPath() const;

  // The current result and the scan generation.
  const ScanNodeRef& cachedRoot() const;
  void setCachedRoot(ScanNodeRef root);
  uint64_t scanGeneration() const;

  // The scan marker. Beginning raises the generation and writes the marker; ending removes it.
  void beginPersistentScan();
  void endPersistentScanCompleted(bool completed);
  // At start-up: deletes a marker left by a scan that never ended; true when there was one.
  bool discardInterruptedScanIfNeeded();

  // Saving. Accepting a completed scan clears its location's forgotten date, makes it the current
  // result and saves it with the current generation. A save always adds a History file and binds
  // the root to it; it replaces "LastScan.sqlite" only when `generation` is still current, the
  // copy succeeded and the root is still the current result. `done` runs on the GUI thread.
  void acceptCompletedScan(const ScanNodeRef& root,
                           std::function<void(const SaveOutcome&)> done = {});
  void saveCachedScanForRoot(const ScanNodeRef& root, uint64_t generation,
                             std::function<void(const SaveOutcome&)> done = {});

  // Restoring at start-up: converts legacy files, then brings back the newest scan of each
  // location that was not forgotten, reporting at most one problem. Results go to the handlers;
  // `done` runs after them on the GUI thread.
  void loadCachedScanAsynchronously(std::function<void(const RestoreOutcome&)> done = {});

  // Taking results off the main screen. `forgetScanResult` acts on the user's answer to the forget
  // prompt; `done` gets the alert shown when deleting failed (the result then stays). Removing
  // deletes every saved scan of a location and calls `completion` with the first error.
  void forgetScanResult(const ScanNodeRef& root, ForgetChoice choice,
                        std::function<void(std::optional<LibraryAlert>)> done = {});
  void removeAllScansForPath(const std::string& path,
                             std::function<void(std::optional<Error>)> completion);

  // Forgotten scan dates (`TWForgottenScanDatesByPath`), keyed by standardised location path.
  std::map<std::string, double> forgottenScanDates() const;

  // Housekeeping once the instance lock is held: removes ".pending" files in the library folder
  // and History untouched for ten minutes. Returns how many were removed.
  int removeStalePendingFiles(std::time_t now) const;

  // A location path as locations are compared: "~" expanded, then standardised lexically.
  static std::string standardizeLocation(const std::string& path);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tw
