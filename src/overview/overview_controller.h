// Disks and Folders overview: the state behind the home screen.
//
// OverviewController owns what the overview shows and does, without any widget: the disk rows and
// the folder rows the user added, the running scans (one scanner per location, several locations
// at once), their progress and the status line, the latest result per location, the freshness of
// saved folder results, the user's known, starred and removed locations (kept in the preferences),
// and the Add Hard Disk and Unlock Disk flows. It rebuilds its rows as plain data that the view
// renders; questions for the user (alerts, the changed-folder choice, the unlock sheet) leave as
// signals. The application installs handlers that open, forget and delete results and that count
// batches of overlapping scans.
//
// GUI thread only. Scanners and freshness checks call back through the GUI executor; a callback
// from a scanner that is no longer the location's scanner changes nothing. Result trees can be
// large: every reference the controller lets go of is dropped on a background thread.
#pragma once

#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/error.h"
#include "scan/directory_scanner.h"
#include "scan/scan_node.h"

namespace tw {

// Texts of the overview's messages.
inline constexpr const char* kStartupDiskName = "Root Disk";
inline constexpr const char* kScansRunningFormat = "%lu scan%@ running in background";
inline constexpr const char* kScanCancelledText = "Scan cancelled";
inline constexpr const char* kChangedFolderMessage = "This folder may have changed";
inline constexpr const char* kChangedFolderInformativeText =
    "The saved visualization may no longer match the folder. You can rescan now or continue to "
    "the saved result.";
inline constexpr const char* kAllDisksAddedText =
    "All available hard disks have already been added.";
inline constexpr const char* kUnableToRemoveFormat = "Unable to Remove %@";
inline constexpr const char* kUnableToRemoveInformativeText =
    "Tarnwell could not remove all saved scans for this item.";
inline constexpr const char* kDifferentDiskMessage = "That is a different disk";
inline constexpr const char* kDifferentDiskInformativeFormat =
    "Drag %@ from the Files window onto the target.";
inline constexpr const char* kUnableToUnlockMessage = "Unable to Unlock Disk";
inline constexpr const char* kUnableToAddDiskMessage = "Unable to Add Hard Disk";
inline constexpr const char* kAlreadyAddedFormat = "“%@” is already added";
inline constexpr const char* kAccessNotGrantedText =
    "The system did not grant access to this disk.";

// The preference key of the disks added through Add Hard Disk that do not get a row by default.
inline constexpr const char* kAddedOverviewDiskPathsKey = "TWAddedOverviewDiskPaths";

// One mounted disk as the overview lists it (sizes in bytes).
struct OverviewDisk {
  std::string path;  // the mount point
  std::string name;  // the file system's label, else the last path component, "/": "Root Disk"
  uint64_t totalCapacity = 0;
  uint64_t availableCapacity = 0;
  uint64_t availableForImportantUsage = 0;
  bool internal = true;
  bool defaultRow = false;  // listed without being added
};

// The disks mounted on this system, the root file system first.
std::vector<OverviewDisk> systemOverviewDisks();
// The disks of `mounted` that get a row, in their order: the default ones and those added with
// Add Hard Disk, less those the user removed (both lists read from the preferences).
std::vector<OverviewDisk> overviewDiskRows(std::vector<OverviewDisk> mounted);

// Capacity figures of a disk row: available space (the figure for important usage when it lies
// between 1 and the total), used space, and their texts in MB below a 1,000,000,000-byte total,
// else in GB ("1,234.5 GB").
uint64_t diskAvailableBytes(const OverviewDisk& disk);
uint64_t diskUsedBytes(const OverviewDisk& disk);
std::string formatDiskFigure(uint64_t bytes, uint64_t totalCapacity);

// A folder row's status line.
enum class FolderStatus { kLocal, kScanning, kChecking, kRescanRecommended };

// One row of the overview, as the view renders it.
struct OverviewRow {
  bool disk = false;
  std::string path;
  std::string name;
  std::string primaryTitle;  // "Unlock", "Scan", "View", "Cancel" or "Checking…"
  bool primaryEnabled = true;
  bool scanning = false;
  bool hasResult = false;
  // Disk rows.
  std::string subtitle;  // "%@ %@": capacity and "startup disk" or "volume"
  bool locked = false;   // the mount point cannot be read: "Unlock"
  double barValue = 0;   // 0…1: the used share, or the scan's progress while scanning
  std::string usedText;  // "%@ used"; empty without a result
  std::string freeText;  // "%@ free"
  // Folder rows.
  bool favorite = false;
  FolderStatus status = FolderStatus::kLocal;
  std::string statusText;  // "Scanning…", "checking for changes…", "Rescan recommended", …
  std::string sizeText;    // the result's size, "empty", or nothing without a result
  std::string accessibleName;  // "%@, %@": name and primary title

  bool operator==(const OverviewRow&) const = default;
};

// The three answers to a disk dropped on the Unlock Disk target.
enum class UnlockOutcome { kUnlocked, kDifferentDisk, kNotGranted };

class OverviewController : public QObject {
  Q_OBJECT
 public:
  // What the application installs.
  struct Handlers {
    std::function<void(const ScanNodeRef& root)> showResult;
    std::function<void(const ScanNodeRef& root)> forgetResult;
    std::function<void(const std::string& path,
                       std::function<void(std::optional<Error>)> completion)>
        removeScansForPath;
    std::function<void()> scanDidBegin;
    std::function<void(bool completed)> scanDidEnd;
    std::function<void(const ScanNodeRef& root)> scanCompleted;
  };
  // What tests replace; every member has a working default.
  struct Options {
    std::function<std::vector<OverviewDisk>()> disks;  // default systemOverviewDisks
    // Layout, settings and threads of a new scanner or snapshot; the callback executor is set by
    // the controller. Default: the system's layout and the scanning preferences.
    std::function<DirectoryScanner::Options()> scannerOptions;
    std::function<bool(const std::string& mountPath)> hasDiskAccess;  // readable and searchable
    std::function<void(const std::string& path)> revealDisk;          // the file manager
    Executor backgroundExecutor;  // where released trees are freed; default the thread pool
  };

  explicit OverviewController(QObject* parent = nullptr);
  explicit OverviewController(Options options, QObject* parent = nullptr);
  ~OverviewController() override;
  void setHandlers(Handlers handlers);

  // Rows: disk rows first, then favourite folders, then the other known folders.
  const std::vector<OverviewRow>& rows() const { return rows_; }
  const OverviewRow* rowForPath(const std::string& path) const;
  void refreshCachedRow();  // rebuilds the rows with the disks' space figures read again
  void reloadVolumes();     // reads the disk list again
  std::vector<OverviewDisk> diskRowDisks() const { return diskRows_; }

  // Scans. A disk row's path scans the disk (or starts Unlock Disk without access).
  void scanURL(const std::string& path);
  void cancelScan();  // every running scan
  bool isScanning(const std::string& path) const;
  std::size_t runningScanCount() const { return scanners_.size(); }
  double scanProgress(const std::string& path) const;  // 0 when not scanning
  double averageProgress() const;
  const QString& statusText() const { return statusText_; }

  // Results.
  void restoreCachedScanRoots(const std::vector<ScanNodeRef>& rootsNewestFirst);
  const ScanNodeRef& cachedRoot() const { return cachedRoot_; }
  void setCachedRoot(ScanNodeRef root);
  void forgetCachedScanRoot(const ScanNodeRef& root);
  ScanNodeRef resultForPath(const std::string& path) const;
  // Freshness of a saved folder result: completion(changed, checked) on the GUI thread.
  void validateCachedFolderRoot(const ScanNodeRef& root,
                                std::function<void(bool changed, bool checked)> completion);
  bool isStale(const std::string& path) const { return stale_.count(path) > 0; }
  bool isChecking(const std::string& path) const { return checking_.count(path) > 0; }
  std::optional<double> lastFreshnessCheck(const std::string& path) const;

  // Row actions.
  void primaryAction(const std::string& path);  // Scan, View, Cancel or Unlock
  void rescan(const std::string& path);
  void viewSavedResult(const std::string& path);
  void toggleFavorite(const std::string& path);
  void forgetResult(const std::string& path);    // hands the result to the forget handler
  void removeLocation(const std::string& path);  // after the user confirmed
  std::string displayName(const std::string& path) const;

  // Adding folders and disks.
  void scanDroppedURL(const std::string& path);
  void addFolder(const std::string& path);
  bool isFolderURLAlreadyAdded(const std::string& path) const;
  bool isVolumeURLAlreadyAdded(const std::string& path) const;
  std::vector<OverviewDisk> disksForAdding() const;  // mounted disks without a row, by name
  void addHardDisk();  // the alert when nothing is left, else addHardDiskRequested
  bool addDisk(const std::string& path);  // false (with the alert) when already added

  // Unlock Disk.
  void beginUnlock(const std::string& diskPath);
  void cancelUnlock();
  const std::string& unlockingDiskPath() const { return unlockingDisk_; }
  UnlockOutcome acceptDroppedVolume(const std::string& droppedPath);

  // Preferences: known, starred, removed and added locations (standardised paths).
  std::vector<std::string> knownFolderPaths() const;
  std::vector<std::string> favoriteFolderPaths() const;
  std::vector<std::string> removedOverviewPaths() const;
  std::vector<std::string> addedDiskPaths() const;
  bool isFavorite(const std::string& path) const;
  void setFavorite(const std::string& path, bool favorite);
  bool isRemovedFromOverview(const std::string& path) const;
  void setRemovedFromOverview(const std::string& path, bool removed);
  void rememberFolder(const std::string& path);

 signals:
  void rowsChanged();
  void statusChanged(const QString& text);
  void dockProgressChanged(double averageFraction);
  void dockProgressCleared();
  // Questions and messages for the user, shown by the view as sheets.
  void alertRequested(const QString& message, const QString& informativeText);
  void changedFolderChoiceRequested(const std::string& path);
  void unlockRequested(const std::string& diskPath);
  void unlockFinished();
  void addHardDiskRequested();
  void beepRequested();

 private:
  friend struct OverviewControllerTestAccess;
  // One running scan: its scanner and the token its callbacks carry.
  struct RunningScan {
    std::unique_ptr<DirectoryScanner> scanner;
    uint64_t token = 0;
  };

  const OverviewDisk* diskForPath(const std::string& path) const;
  const OverviewDisk* mountedDiskHolding(const std::string& path) const;
  bool hasAccess(const std::string& diskPath) const;
  void rebuildRows();
  // Reads the mounted disks again, without rebuilding the rows.
  void readMountedDisks();
  // Reads the mounted disks again and gives the disk rows their new space figures.
  void refreshDiskFigures();
  // Starts a freshness check without rebuilding the rows; false when there is nothing to check
  // (the completion has then run).
  bool beginFreshnessCheck(const ScanNodeRef& root,
                           std::function<void(bool changed, bool checked)> completion);
  void setStatus(const QString& text);
  void scanProgressed(const std::string& path, uint64_t token, double fraction);
  void scanFinished(const std::string& path, uint64_t token, ScanNodeRef root,
                    std::optional<Error> error, bool cancelled);
  void storeResult(const std::string& path, ScanNodeRef root);
  void releaseInBackground(ScanNodeRef root);
  void showAlreadyAddedAlert(const std::string& path, const char* kind);
  DirectoryScanner::Options scannerOptions();
  Executor guiExecutor();

  Options options_;
  Handlers handlers_;
  std::vector<OverviewDisk> mounted_;  // every mounted disk, as last read
  std::vector<OverviewDisk> diskRows_;
  std::vector<OverviewRow> rows_;
  std::map<std::string, std::unique_ptr<RunningScan>> scanners_;
  std::map<std::string, double> progress_;
  std::map<std::string, double> volumeIdleValues_;
  std::map<std::string, ScanNodeRef> results_;
  std::set<std::string> stale_, checking_, viewChecks_;
  std::map<std::string, double> lastFreshnessCheck_;
  ScanNodeRef cachedRoot_;
  QString statusText_;
  std::string unlockingDisk_;
  uint64_t nextToken_ = 1;
};

}  // namespace tw
