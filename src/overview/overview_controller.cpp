#include "overview/overview_controller.h"

#include <sys/stat.h>

#include <QPointer>
#include <QSettings>
#include <QThreadPool>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "platform/disk_access.h"
#include "platform/file_manager.h"
#include "platform/natural_order.h"
#include "platform/paths.h"
#include "services/gui_executor.h"
#include "services/preferences.h"
#include "ui/byte_count.h"
#include "ui/placeholder.h"

namespace tw {

namespace {

constexpr double kProgressCap = 0.995;

QString qs(const std::string& text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

double nowSeconds() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

QString runningScansText(std::size_t count) {
  std::string text = kScansRunningFormat;
  text.replace(text.find("%lu"), 3, std::to_string(count));
  return qs(fillPlaceholder(text, count == 1 ? "" : "s"));
}

// Preference lists, read and written through one settings object per call.
std::vector<std::string> readList(const char* key) {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  return pathListPreference(settings, QString::fromLatin1(key));
}

void writeList(const char* key, const std::vector<std::string>& paths) {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  setPathListPreference(settings, QString::fromLatin1(key), paths);
}

bool contains(const std::vector<std::string>& list, const std::string& path) {
  return std::find(list.begin(), list.end(), path) != list.end();
}

void appendOnce(const char* key, const std::string& path) {
  std::vector<std::string> list = readList(key);
  if (contains(list, path)) return;
  list.push_back(path);
  writeList(key, list);
}

void removeFrom(const char* key, const std::string& path) {
  std::vector<std::string> list = readList(key);
  const auto end = std::remove(list.begin(), list.end(), path);
  if (end == list.end()) return;
  list.erase(end, list.end());
  writeList(key, list);
}

std::string withGrouping(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.1f", value);
  std::string text = buffer;
  if (text == "nan" || text == "inf" || text == "-nan") return "0.0";
  const std::size_t dot = text.find('.');
  std::string whole = text.substr(0, dot), grouped;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    if (i > 0 && (whole.size() - i) % 3 == 0) grouped.push_back(',');
    grouped.push_back(whole[i]);
  }
  return grouped + text.substr(dot);
}

}  // namespace

std::vector<OverviewDisk> overviewDiskRows(std::vector<OverviewDisk> mounted) {
  const std::vector<std::string> added = readList(kAddedOverviewDiskPathsKey);
  const std::vector<std::string> removed = readList(kRemovedOverviewPathsKey);
  std::vector<OverviewDisk> rows;
  for (OverviewDisk& disk : mounted) {
    disk.path = standardizePath(disk.path);
    if (disk.path.empty() || contains(removed, disk.path)) continue;
    if (disk.defaultRow || contains(added, disk.path)) rows.push_back(std::move(disk));
  }
  return rows;
}

uint64_t diskAvailableBytes(const OverviewDisk& disk) {
  const uint64_t important = disk.availableForImportantUsage;
  if (important >= 1 && important <= disk.totalCapacity) return important;
  return disk.availableCapacity;
}

uint64_t diskUsedBytes(const OverviewDisk& disk) {
  const uint64_t available = diskAvailableBytes(disk);
  return disk.totalCapacity > available ? disk.totalCapacity - available : 0;
}

std::string formatDiskFigure(uint64_t bytes, uint64_t totalCapacity) {
  const bool megabytes = totalCapacity < 1000000000ULL;
  const double value = static_cast<double>(bytes) / (megabytes ? 1e6 : 1e9);
  return withGrouping(value) + (megabytes ? " MB" : " GB");
}

OverviewController::OverviewController(QObject* parent) : OverviewController(Options{}, parent) {}

OverviewController::OverviewController(Options options, QObject* parent)
    : QObject(parent), options_(std::move(options)) {
  if (!options_.disks) options_.disks = systemOverviewDisks;
  if (!options_.hasDiskAccess) options_.hasDiskAccess = isReadableAndSearchable;
  if (!options_.revealDisk)
    options_.revealDisk = [](const std::string& p) { revealInFileManager({p}); };
  if (!options_.backgroundExecutor) options_.backgroundExecutor = threadPoolExecutor();
  if (!options_.scannerOptions) {
    options_.scannerOptions = [] {
      DirectoryScanner::Options o;
      o.layout = makeLinuxVolumeLayout();
      o.settings = readScanSettings;
      return o;
    };
  }
  reloadVolumes();
}

OverviewController::~OverviewController() {
  for (auto& [path, scan] : scanners_) scan->scanner->cancel();
  scanners_.clear();
  for (auto& [path, root] : results_) releaseInBackground(std::move(root));
  releaseInBackground(std::move(cachedRoot_));
}

void OverviewController::setHandlers(Handlers handlers) {
  handlers_ = std::move(handlers);
}

// --- Threads ----------------------------------------------------------------------------------

Executor OverviewController::guiExecutor() {
  QPointer<OverviewController> self(this);
  Executor background = options_.backgroundExecutor;
  return [self, background](std::function<void()> work) {
    if (!self) return;  // the spent work is freed where it stands
    QMetaObject::invokeMethod(
        self.data(),
        [work = std::move(work), background]() mutable {
          work();
          // The work may hold the last reference to a finished tree: free it off this thread.
          background([spent = std::move(work)]() mutable { spent = nullptr; });
        },
        Qt::QueuedConnection);
  };
}

DirectoryScanner::Options OverviewController::scannerOptions() {
  DirectoryScanner::Options o = options_.scannerOptions();
  o.callbackExecutor = guiExecutor();
  return o;
}

void OverviewController::releaseInBackground(ScanNodeRef root) {
  if (!root) return;
  options_.backgroundExecutor([root = std::move(root)]() mutable { root.reset(); });
}

// --- Disks and rows ---------------------------------------------------------------------------

const OverviewDisk* OverviewController::diskForPath(const std::string& path) const {
  for (const OverviewDisk& disk : diskRows_)
    if (disk.path == path) return &disk;
  return nullptr;
}

const OverviewDisk* OverviewController::mountedDiskHolding(const std::string& path) const {
  const OverviewDisk* best = nullptr;
  for (const OverviewDisk& disk : mounted_) {
    if (!isSameOrInside(path, disk.path)) continue;
    if (!best || disk.path.size() > best->path.size()) best = &disk;
  }
  return best;
}

bool OverviewController::hasAccess(const std::string& diskPath) const {
  return options_.hasDiskAccess(diskPath);
}

void OverviewController::readMountedDisks() {
  mounted_ = options_.disks();
  for (OverviewDisk& disk : mounted_) disk.path = standardizePath(disk.path);
}

void OverviewController::reloadVolumes() {
  readMountedDisks();
  diskRows_ = overviewDiskRows(mounted_);
  rebuildRows();
}

void OverviewController::refreshDiskFigures() {
  readMountedDisks();
  for (OverviewDisk& row : diskRows_) {
    auto now = std::find_if(mounted_.begin(), mounted_.end(),
                            [&](const OverviewDisk& disk) { return disk.path == row.path; });
    if (now != mounted_.end()) row = *now;
  }
}

void OverviewController::refreshCachedRow() {
  refreshDiskFigures();
  rebuildRows();
}

std::string OverviewController::displayName(const std::string& path) const {
  if (const OverviewDisk* disk = diskForPath(path)) {
    if (!disk->name.empty()) return disk->name;
  }
  if (path == "/") return kStartupDiskName;
  return std::string(displayNameForPath(path));
}

void OverviewController::rebuildRows() {
  std::vector<OverviewRow> rows;
  for (const OverviewDisk& disk : diskRows_) {
    OverviewRow row;
    row.disk = true;
    row.path = disk.path;
    row.name = displayName(disk.path);
    row.subtitle =
        formatByteCount(disk.totalCapacity) + " " + (disk.path == "/" ? "startup disk" : "volume");
    row.scanning = isScanning(disk.path);
    row.hasResult = results_.count(disk.path) > 0;
    row.locked = !hasAccess(disk.path);
    const uint64_t used = diskUsedBytes(disk);
    if (row.scanning) {
      row.barValue = scanProgress(disk.path);
    } else if (auto idle = volumeIdleValues_.find(disk.path); idle != volumeIdleValues_.end()) {
      row.barValue = idle->second;
    } else {
      row.barValue = static_cast<double>(used) /
                     static_cast<double>(std::max<uint64_t>(disk.totalCapacity, 1));
    }
    if (row.hasResult && !row.scanning)
      row.usedText = formatDiskFigure(used, disk.totalCapacity) + " used";
    row.freeText = formatDiskFigure(diskAvailableBytes(disk), disk.totalCapacity) + " free";
    row.primaryTitle = row.scanning    ? "Cancel"
                       : row.locked    ? "Unlock"
                       : row.hasResult ? "View"
                                       : "Scan";
    row.accessibleName = row.name + ", " + row.primaryTitle;
    rows.push_back(std::move(row));
  }

  // Folders: the favourites in their order, then every other known folder, each once.
  const std::vector<std::string> removed = removedOverviewPaths();
  std::vector<std::string> folders;
  for (const std::vector<std::string>& list : {favoriteFolderPaths(), knownFolderPaths()})
    for (const std::string& path : list)
      if (!path.empty() && !contains(folders, path) && !contains(removed, path) &&
          !diskForPath(path))
        folders.push_back(path);
  const std::vector<std::string> favorites = favoriteFolderPaths();
  for (const std::string& path : folders) {
    OverviewRow row;
    row.path = path;
    row.name = displayName(path);
    row.favorite = contains(favorites, path);
    row.scanning = isScanning(path);
    const ScanNodeRef result = resultForPath(path);
    row.hasResult = result != nullptr;
    if (row.scanning) {
      row.status = FolderStatus::kScanning;
      row.statusText = "Scanning…";
    } else if (isChecking(path)) {
      row.status = FolderStatus::kChecking;
      row.statusText = "checking for changes…";
    } else if (result && (isStale(path) || result->scanDate() <= 0)) {
      row.status = FolderStatus::kRescanRecommended;
      row.statusText = "Rescan recommended";
    } else {
      row.status = FolderStatus::kLocal;
      row.statusText = "local folder";
    }
    if (result) row.sizeText = result->size() == 0 ? "empty" : formatByteCount(result->size());
    if (row.scanning) {
      row.primaryTitle = "Cancel";
    } else if (viewChecks_.count(path)) {
      row.primaryTitle = "Checking…";
      row.primaryEnabled = false;
    } else {
      row.primaryTitle = row.hasResult ? "View" : "Scan";
    }
    row.accessibleName = row.name + ", " + row.primaryTitle;
    rows.push_back(std::move(row));
  }
  rows_ = std::move(rows);
  emit rowsChanged();
}

const OverviewRow* OverviewController::rowForPath(const std::string& path) const {
  const std::string p = standardizeUserPath(path);
  for (const OverviewRow& row : rows_)
    if (row.path == p) return &row;
  return nullptr;
}

// --- Scans ------------------------------------------------------------------------------------

bool OverviewController::isScanning(const std::string& path) const {
  return scanners_.count(path) > 0;
}

double OverviewController::scanProgress(const std::string& path) const {
  auto it = progress_.find(path);
  return it == progress_.end() ? 0.0 : it->second;
}

double OverviewController::averageProgress() const {
  if (progress_.empty()) return 0;
  double sum = 0;
  for (const auto& [path, value] : progress_) sum += value;
  return sum / static_cast<double>(progress_.size());
}

void OverviewController::setStatus(const QString& text) {
  statusText_ = text;
  emit statusChanged(text);
}

void OverviewController::scanURL(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  if (path.empty() || isScanning(path)) return;
  const OverviewDisk* disk = diskForPath(path);
  if (disk && !hasAccess(path)) {
    beginUnlock(path);
    return;
  }
  if (scanners_.empty() && handlers_.scanDidBegin) handlers_.scanDidBegin();
  if (!disk) {
    rememberFolder(path);
    stale_.erase(path);
    checking_.erase(path);
  }
  auto scan = std::make_unique<RunningScan>();
  scan->scanner = std::make_unique<DirectoryScanner>(scannerOptions());
  scan->token = nextToken_++;
  DirectoryScanner* scanner = scan->scanner.get();
  const uint64_t token = scan->token;
  scanners_[path] = std::move(scan);
  progress_[path] = 0;

  uint64_t estimate = 0;
  if (disk) {
    const uint64_t available = diskAvailableBytes(*disk);
    estimate = disk->totalCapacity > available ? disk->totalCapacity - available : 1;
    auto row = std::find_if(rows_.begin(), rows_.end(),
                            [&](const OverviewRow& r) { return r.disk && r.path == path; });
    if (row != rows_.end()) volumeIdleValues_[path] = row->barValue;
  }
  rebuildRows();
  setStatus(runningScansText(scanners_.size()));
  emit dockProgressChanged(averageProgress());

  QPointer<OverviewController> self(this);
  scanner->scanURL(
      path, estimate,
      [self, path, token](uint64_t, uint64_t, double fraction) {
        if (self) self->scanProgressed(path, token, fraction);
      },
      [self, path, token](ScanNodeRef root, std::optional<Error> error, bool cancelled) {
        if (self) self->scanFinished(path, token, std::move(root), std::move(error), cancelled);
      });
}

void OverviewController::scanProgressed(const std::string& path, uint64_t token, double fraction) {
  auto scan = scanners_.find(path);
  if (fraction < 0 || scan == scanners_.end() || scan->second->token != token) return;
  const double shown = std::min(kProgressCap, std::max(fraction, progress_[path]));
  progress_[path] = shown;
  if (diskForPath(path)) {
    for (OverviewRow& row : rows_)
      if (row.disk && row.path == path) row.barValue = shown;
    emit rowsChanged();
  }
  emit dockProgressChanged(averageProgress());
}

void OverviewController::scanFinished(const std::string& path, uint64_t token, ScanNodeRef root,
                                      std::optional<Error> error, bool cancelled) {
  auto scan = scanners_.find(path);
  if (scan == scanners_.end() || scan->second->token != token) {
    releaseInBackground(std::move(root));
    return;
  }
  const bool completed = root && !error && !cancelled;
  scanners_.erase(scan);
  progress_.erase(path);
  volumeIdleValues_.erase(path);
  if (completed) {
    storeResult(path, root);
    setCachedRoot(root);
    stale_.erase(path);
    if (handlers_.scanCompleted) handlers_.scanCompleted(root);
  }
  releaseInBackground(std::move(root));
  if (!scanners_.empty()) {
    emit dockProgressChanged(averageProgress());
    setStatus(runningScansText(scanners_.size()));
  } else {
    emit dockProgressCleared();
    setStatus(cancelled ? QString::fromUtf8(kScanCancelledText)
              : error   ? qs(error->description)
                        : QString());
    if (handlers_.scanDidEnd) handlers_.scanDidEnd(completed);
  }
  // The scan may have found a disk that filled up or emptied meanwhile.
  refreshCachedRow();
}

void OverviewController::cancelScan() {
  for (auto& [path, scan] : scanners_) scan->scanner->cancel();
}

// --- Results ----------------------------------------------------------------------------------

void OverviewController::storeResult(const std::string& path, ScanNodeRef root) {
  ScanNodeRef& slot = results_[path];
  ScanNodeRef previous = std::move(slot);
  slot = std::move(root);
  if (previous != slot) releaseInBackground(std::move(previous));
}

ScanNodeRef OverviewController::resultForPath(const std::string& path) const {
  auto it = results_.find(path);
  return it == results_.end() ? nullptr : it->second;
}

void OverviewController::setCachedRoot(ScanNodeRef root) {
  ScanNodeRef previous = std::move(cachedRoot_);
  cachedRoot_ = std::move(root);
  if (previous != cachedRoot_) releaseInBackground(std::move(previous));
}

void OverviewController::restoreCachedScanRoots(const std::vector<ScanNodeRef>& roots) {
  if (roots.empty()) return;
  std::vector<ScanNodeRef> toCheck;
  for (const ScanNodeRef& root : roots) {
    if (!root) continue;
    const std::string path = standardizeUserPath(root->path());
    if (path.empty() || isRemovedFromOverview(path)) continue;
    const ScanNodeRef existing = resultForPath(path);
    if (existing && existing->scanDate() > root->scanDate()) continue;
    storeResult(path, root);
    if (!root->isVolumeRoot()) {
      rememberFolder(path);
      toCheck.push_back(root);
    }
  }
  // Every restored folder shows "checking for changes…" at once: one rebuild, not one per folder.
  for (const ScanNodeRef& root : toCheck) beginFreshnessCheck(root, {});
  rebuildRows();
}

void OverviewController::forgetCachedScanRoot(const ScanNodeRef& root) {
  if (!root) return;
  const std::string path = standardizeUserPath(root->path());
  auto it = results_.find(path);
  if (it != results_.end()) {
    releaseInBackground(std::move(it->second));
    results_.erase(it);
  }
  if (cachedRoot_ == root) setCachedRoot(nullptr);
  rebuildRows();
}

std::optional<double> OverviewController::lastFreshnessCheck(const std::string& path) const {
  auto it = lastFreshnessCheck_.find(path);
  if (it == lastFreshnessCheck_.end()) return std::nullopt;
  return it->second;
}

void OverviewController::validateCachedFolderRoot(
    const ScanNodeRef& root, std::function<void(bool changed, bool checked)> completion) {
  if (beginFreshnessCheck(root, std::move(completion))) rebuildRows();
}

bool OverviewController::beginFreshnessCheck(
    const ScanNodeRef& root, std::function<void(bool changed, bool checked)> completion) {
  const std::string path = root ? standardizeUserPath(root->path()) : std::string();
  if (!root || root->isVolumeRoot() || path.empty() || root->scanDate() <= 0) {
    if (completion) completion(false, false);
    return false;
  }
  checking_.insert(path);
  const uint64_t fingerprint = root->sourceFingerprint();
  const int64_t itemCount = root->sourceItemCount();
  QPointer<OverviewController> self(this);
  DirectoryScanner::captureSourceSnapshot(
      path, scannerOptions(),
      [self, path, fingerprint, itemCount, completion](SourceSnapshot snapshot) {
        if (!self) return;
        self->checking_.erase(path);
        self->lastFreshnessCheck_[path] = nowSeconds();
        if (snapshot.error && snapshot.itemCount == 0 && snapshot.fingerprint == 0) {
          self->rebuildRows();
          if (completion) completion(false, false);
          return;
        }
        const bool changed = snapshot.fingerprint != fingerprint || snapshot.itemCount != itemCount;
        if (changed) {
          self->stale_.insert(path);
        } else {
          self->stale_.erase(path);
        }
        self->rebuildRows();
        if (completion) completion(changed, true);
      });
  return true;
}

// --- Row actions ------------------------------------------------------------------------------

void OverviewController::primaryAction(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  if (diskForPath(path)) {
    if (isScanning(path)) {
      cancelScan();
    } else if (!hasAccess(path)) {
      beginUnlock(path);
    } else if (ScanNodeRef result = resultForPath(path)) {
      if (handlers_.showResult) handlers_.showResult(result);
    } else {
      scanURL(path);
    }
    return;
  }
  if (auto scan = scanners_.find(path); scan != scanners_.end()) {
    scan->second->scanner->cancel();
    return;
  }
  const ScanNodeRef result = resultForPath(path);
  if (!result) {
    scanURL(path);
    return;
  }
  if (viewChecks_.count(path)) return;
  if (isStale(path) || result->scanDate() <= 0) {
    emit changedFolderChoiceRequested(path);
    return;
  }
  viewChecks_.insert(path);
  QPointer<OverviewController> self(this);
  validateCachedFolderRoot(result, [self, path, result](bool changed, bool checked) {
    if (!self) return;
    self->viewChecks_.erase(path);
    self->rebuildRows();
    if (checked && !changed) {
      if (self->handlers_.showResult) self->handlers_.showResult(result);
    } else {
      emit self->changedFolderChoiceRequested(path);
    }
  });
}

void OverviewController::rescan(const std::string& path) {
  scanURL(path);
}

void OverviewController::viewSavedResult(const std::string& path) {
  if (ScanNodeRef result = resultForPath(standardizeUserPath(path)))
    if (handlers_.showResult) handlers_.showResult(result);
}

void OverviewController::toggleFavorite(const std::string& path) {
  setFavorite(path, !isFavorite(path));
}

void OverviewController::forgetResult(const std::string& path) {
  if (ScanNodeRef result = resultForPath(standardizeUserPath(path)))
    if (handlers_.forgetResult) handlers_.forgetResult(result);
}

void OverviewController::removeLocation(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  if (path.empty() || !handlers_.removeScansForPath) return;
  QPointer<OverviewController> self(this);
  handlers_.removeScansForPath(path, [self, path](std::optional<Error> error) {
    if (!self) return;
    if (error) {
      emit self->alertRequested(qs(fillPlaceholder(kUnableToRemoveFormat, self->displayName(path))),
                                QString::fromUtf8(kUnableToRemoveInformativeText));
      return;
    }
    const bool disk = self->diskForPath(path) != nullptr;
    self->setRemovedFromOverview(path, true);
    removeFrom(kKnownFolderPathsKey, path);
    removeFrom(kFavoriteFolderPathsKey, path);
    self->stale_.erase(path);
    self->checking_.erase(path);
    self->lastFreshnessCheck_.erase(path);
    if (auto it = self->results_.find(path); it != self->results_.end()) {
      self->releaseInBackground(std::move(it->second));
      self->results_.erase(it);
    }
    if (self->cachedRoot_ && standardizeUserPath(self->cachedRoot_->path()) == path)
      self->setCachedRoot(nullptr);
    if (disk) {
      self->reloadVolumes();
    } else {
      self->rebuildRows();
    }
  });
}

// --- Adding folders and disks -----------------------------------------------------------------

bool OverviewController::isFolderURLAlreadyAdded(const std::string& path) const {
  const OverviewRow* row = rowForPath(path);
  return row && !row->disk;
}

bool OverviewController::isVolumeURLAlreadyAdded(const std::string& path) const {
  return diskForPath(standardizeUserPath(path)) != nullptr;
}

void OverviewController::showAlreadyAddedAlert(const std::string& path, const char* kind) {
  const std::string name = path.empty() ? "This item" : displayName(path);
  emit alertRequested(qs(fillPlaceholder(kAlreadyAddedFormat, name)),
                      qs(std::string("Choose a different ") + kind + "."));
}

void OverviewController::addFolder(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  if (path.empty()) return;
  // A disk's mount point already has its disk row.
  if (isFolderURLAlreadyAdded(path) || isVolumeURLAlreadyAdded(path)) {
    showAlreadyAddedAlert(path, "folder");
    return;
  }
  rememberFolder(path);
  rebuildRows();
}

void OverviewController::scanDroppedURL(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  struct stat st {};
  if (path.empty() || ::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    emit beepRequested();
    return;
  }
  const OverviewDisk* mounted = mountedDiskHolding(path);
  if (!mounted || mounted->path != path) {
    addFolder(path);
    return;
  }
  if (isVolumeURLAlreadyAdded(path)) {
    showAlreadyAddedAlert(path, "hard disk");
    return;
  }
  setRemovedFromOverview(path, false);
  if (!mounted->defaultRow) appendOnce(kAddedOverviewDiskPathsKey, path);
  reloadVolumes();
  if (!diskForPath(path)) {
    emit beepRequested();
    return;
  }
  scanURL(path);  // starts Unlock Disk instead when the disk cannot be read
}

std::vector<OverviewDisk> OverviewController::disksForAdding() const {
  std::vector<OverviewDisk> disks;
  for (const OverviewDisk& disk : mounted_)
    if (!disk.path.empty() && !diskForPath(disk.path)) disks.push_back(disk);
  std::sort(disks.begin(), disks.end(), [](const OverviewDisk& a, const OverviewDisk& b) {
    return naturalCompare(a.name, b.name) < 0;
  });
  return disks;
}

void OverviewController::addHardDisk() {
  reloadVolumes();
  if (disksForAdding().empty()) {
    emit alertRequested(QString::fromUtf8(kAllDisksAddedText), QString());
    return;
  }
  emit addHardDiskRequested();
}

bool OverviewController::addDisk(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  if (isVolumeURLAlreadyAdded(path)) {
    showAlreadyAddedAlert(path, "hard disk");
    return false;
  }
  // Linux keeps no access grants: the disk is remembered by its mount point, which must still be
  // one (a disk unmounted while the sheet was open cannot be added).
  readMountedDisks();
  const OverviewDisk* mounted = mountedDiskHolding(path);
  if (!mounted || mounted->path != path) {
    emit alertRequested(qs(kUnableToAddDiskMessage), qs(kAccessNotGrantedText));
    return false;
  }
  setRemovedFromOverview(path, false);
  if (!mounted->defaultRow) appendOnce(kAddedOverviewDiskPathsKey, path);
  reloadVolumes();
  return true;
}

// --- Unlock Disk ------------------------------------------------------------------------------

void OverviewController::beginUnlock(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  if (!unlockingDisk_.empty() || path.empty()) return;
  if (hasAccess(path)) {
    // Without a privacy database there is nothing more to grant: scan at once.
    scanURL(path);
    return;
  }
  unlockingDisk_ = path;
  options_.revealDisk(path);
  emit unlockRequested(path);
}

void OverviewController::cancelUnlock() {
  if (unlockingDisk_.empty()) return;
  unlockingDisk_.clear();
  emit unlockFinished();
}

UnlockOutcome OverviewController::acceptDroppedVolume(const std::string& droppedPath) {
  const std::string expected = unlockingDisk_;
  const OverviewDisk* holder = mountedDiskHolding(standardizeUserPath(droppedPath));
  if (expected.empty() || !holder || holder->path != expected) {
    std::string name = expected.empty() ? std::string() : std::string(displayNameForPath(expected));
    if (name.empty() || name == "/") name = "the selected disk";
    emit alertRequested(QString::fromUtf8(kDifferentDiskMessage),
                        qs(fillPlaceholder(kDifferentDiskInformativeFormat, name)));
    return UnlockOutcome::kDifferentDisk;
  }
  if (!hasAccess(expected)) {
    emit alertRequested(QString::fromUtf8(kUnableToUnlockMessage),
                        QString::fromUtf8(kAccessNotGrantedText));
    return UnlockOutcome::kNotGranted;
  }
  unlockingDisk_.clear();
  emit unlockFinished();
  rebuildRows();
  scanURL(expected);
  return UnlockOutcome::kUnlocked;
}

// --- Preferences ------------------------------------------------------------------------------

std::vector<std::string> OverviewController::knownFolderPaths() const {
  return readList(kKnownFolderPathsKey);
}

std::vector<std::string> OverviewController::favoriteFolderPaths() const {
  return readList(kFavoriteFolderPathsKey);
}

std::vector<std::string> OverviewController::removedOverviewPaths() const {
  return readList(kRemovedOverviewPathsKey);
}

std::vector<std::string> OverviewController::addedDiskPaths() const {
  return readList(kAddedOverviewDiskPathsKey);
}

bool OverviewController::isFavorite(const std::string& path) const {
  return contains(favoriteFolderPaths(), standardizeUserPath(path));
}

void OverviewController::setFavorite(const std::string& location, bool favorite) {
  const std::string path = standardizeUserPath(location);
  if (path.empty()) return;
  if (favorite) {
    appendOnce(kFavoriteFolderPathsKey, path);
  } else {
    removeFrom(kFavoriteFolderPathsKey, path);
  }
  rebuildRows();
}

bool OverviewController::isRemovedFromOverview(const std::string& path) const {
  return contains(removedOverviewPaths(), standardizeUserPath(path));
}

void OverviewController::setRemovedFromOverview(const std::string& location, bool removed) {
  const std::string path = standardizeUserPath(location);
  if (path.empty()) return;
  if (removed) {
    appendOnce(kRemovedOverviewPathsKey, path);
  } else {
    removeFrom(kRemovedOverviewPathsKey, path);
  }
}

void OverviewController::rememberFolder(const std::string& location) {
  const std::string path = standardizeUserPath(location);
  if (path.empty()) return;
  appendOnce(kKnownFolderPathsKey, path);
  setRemovedFromOverview(path, false);
}

}  // namespace tw
