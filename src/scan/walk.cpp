#include "scan/walk.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <unordered_set>

#include "platform/paths.h"
#include "scan/dir_reader.h"
#include "scan/exclusion.h"
#include "scan/fingerprint.h"
#include "scan/issue_recorder.h"

namespace tw {

namespace {

constexpr uint64_t kSmallFileLimit = 5242880;  // files below 5 MiB are grouped on whole disks

double nowSeconds() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

double monotonicSeconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

struct FileID {
  uint64_t device;
  uint64_t inode;
  bool operator==(const FileID&) const = default;
};
struct FileIDHash {
  std::size_t operator()(const FileID& id) const {
    return static_cast<std::size_t>((id.inode * 0x9E3779B97F4A7C15ULL) ^ id.device);
  }
};

using Disposition = EntryDisposition;

class Walk final : public EntryClassifier {
 public:
  enum class Mode { Scan, Snapshot };

  Walk(Mode mode, const std::string& path, const DirectoryScanner::Options& options,
       const ScanSettings& settings, uint64_t estimate, const ProgressHandler* progress,
       const std::atomic<bool>& cancel)
      : mode_(mode),
        rootPath_(standardizePath(path)),
        options_(options),
        layout_(*options.layout),
        settings_(settings),
        rules_(rootPath_, settings.excludedPaths, settings.excludedFilePatterns),
        estimate_(estimate),
        progress_(progress && *progress ? progress : nullptr),
        cancel_(cancel),
        issues_(rootPath_) {}

  ScanResult scan();
  SourceSnapshot snapshot();

  void classify(const std::string& folderPath, DirListing& listing) const override;

 private:
  struct Frame {
    std::unique_ptr<DirListing> listing;
    std::vector<ListingPrefetcher::Ticket> tickets;  // per entry; set for folders to enter
    std::size_t next = 0;
    ScanNode* node = nullptr;
    ScanNode* group = nullptr;  // this folder's "smaller objects…" on whole-disk scans
    std::size_t pathLength = 0;
    FingerprintHash hash;   // fed with the folder's relative path and its separator
    uint64_t subtotal = 0;  // file sizes below, passed up when the folder is left
  };

  bool cancelled() const { return cancel_.load(std::memory_order_relaxed); }
  bool openRoot();
  void walkTree();
  void enterFolder(const ListingPrefetcher::Ticket& ticket, ScanNode* node, std::string_view name,
                   std::string_view path);
  void leaveFolder();
  const std::string& entryPath(const Frame& frame, const DirEntry& e);
  Disposition classify(const std::string& folderPath, const DirListing& listing,
                       const DirEntry& e) const;
  void processItem(Frame& frame, std::size_t index);
  void addToFingerprint(const Frame& frame, const DirEntry& e, std::string_view name);
  void visit();
  void recordUnreadable(std::string_view path, int err);

  void gatherApplicationClones();
  void addSystemVolumes();
  void checkProtectedLocations();
  void addHiddenSpace();
  ScanNode* findFolderNode(std::string_view path);
  void reportProgress(double fraction);

  Mode mode_;
  std::string rootPath_;
  const DirectoryScanner::Options& options_;
  const VolumeLayout& layout_;
  const ScanSettings& settings_;
  ExclusionRules rules_;
  uint64_t estimate_;
  const ProgressHandler* progress_;
  const std::atomic<bool>& cancel_;
  IssueRecorder issues_;

  ScanNodeRef rootRef_;
  ScanNode* root_ = nullptr;
  NodeArena* arena_ = nullptr;
  bool volumeRoot_ = false;
  std::string systemRoot_;  // set when the system-disk rules apply to this walk
  // Locations the system-disk rules name, below the system root; made once, used per item.
  std::string dataVolumePath_;    // reached through its firmlinks already
  std::string otherVolumesPath_;  // other disks
  std::string applicationsPath_;  // where clone families are preferably charged
  uint64_t rootMountID_ = 0;
  uint64_t rootDevice_ = 0;
  ReadOptions readOptions_;
  std::unique_ptr<ListingPrefetcher> prefetcher_;

  std::vector<Frame> stack_;
  std::string path_;  // the current folder's full path
  std::string scratch_;
  std::unordered_set<FileID, FileIDHash> hardLinks_;
  std::unordered_set<std::string> applicationClones_;
  std::unordered_set<std::string> chargedClones_;

  uint64_t bytesCounted_ = 0;
  uint64_t itemsVisited_ = 0;
  uint64_t fingerprint_ = 0;
  int64_t fingerprintItems_ = 0;
  std::optional<Error> firstError_;
  bool aborted_ = false;
  // Levels are sorted as folders are left, except on the system disk, whose volumes change sizes
  // along the tree after the walk.
  bool sortWhileWalking_ = false;
};

bool Walk::openRoot() {
  int fd = open(rootPath_.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  const FileDescriptor root(fd);  // only for the figures below; the walk opens the root itself
  struct statx st {};
  if (statx(fd, "", AT_EMPTY_PATH, STATX_MNT_ID | STATX_INO, &st) == 0) {
    rootMountID_ = (st.stx_mask & STATX_MNT_ID) ? st.stx_mnt_id : 0;
    rootDevice_ = (uint64_t{st.stx_dev_major} << 32) | st.stx_dev_minor;
  }
  readOptions_.layout = &layout_;
  readOptions_.probeClones = layout_.mayHaveClones(fd);
  return true;
}

void Walk::recordUnreadable(std::string_view path, int err) {
  Error error = posixError(err);
  if (mode_ == Mode::Snapshot) {
    if (!firstError_) firstError_ = error;
  } else {
    issues_.record(path, &error);
  }
}

const std::string& Walk::entryPath(const Frame& frame, const DirEntry& e) {
  scratch_.assign(path_, 0, frame.pathLength);
  if (scratch_.empty() || scratch_.back() != '/') scratch_.push_back('/');
  scratch_.append(frame.listing->nameView(e));
  return scratch_;
}

Disposition Walk::classify(const std::string& folderPath, const DirListing& listing,
                           const DirEntry& e) const {
  if (e.error) return Disposition::Unreadable;
  if (e.isSymbolicLink()) return Disposition::LeftOut;
  // Never cross into another mount: its disk is a scan of its own.
  if (rootMountID_ && e.mountID ? e.mountID != rootMountID_ : e.device != rootDevice_)
    return Disposition::LeftOut;
  const std::string_view name = listing.nameView(e);
  if (!rules_.empty() || !systemRoot_.empty()) {
    const std::string path = appendPathComponent(folderPath, name);
    if (!rules_.empty() && rules_.isExcluded(path)) return Disposition::LeftOut;
    if (!systemRoot_.empty() && mode_ == Mode::Scan &&
        (isSameOrInside(path, dataVolumePath_) || isSameOrInside(path, otherVolumesPath_)))
      return Disposition::LeftOut;
  }
  if (e.isDirectory() && settings_.skipPackages && isPackageName(name)) {
    // The snapshot makes no exception for archives: stored fingerprints were made that way.
    if (mode_ == Mode::Snapshot || fileExtension(name) != "xcarchive") return Disposition::Package;
  }
  return Disposition::Item;
}

void Walk::classify(const std::string& folderPath, DirListing& listing) const {
  listing.dispositions.resize(listing.entries.size());
  for (std::size_t i = 0; i < listing.entries.size(); ++i)
    listing.dispositions[i] = classify(folderPath, listing, listing.entries[i]);
}

void Walk::enterFolder(const ListingPrefetcher::Ticket& ticket, ScanNode* node,
                       std::string_view name, std::string_view path) {
  Frame frame;
  frame.listing = prefetcher_->take(ticket, frame.tickets);
  if (frame.listing->error) {
    recordUnreadable(path, frame.listing->error);
    return;
  }
  if (stack_.empty()) {
    path_ = rootPath_;
    // Relative paths keep their leading "/": the root's own length is cut off.
    if (rootPath_ != "/") frame.hash.feed("/");
  } else {
    const Frame& parent = stack_.back();
    if (path_.back() != '/') path_.push_back('/');
    path_.append(name);
    frame.hash = parent.hash;
    frame.hash.feed(name);
    frame.hash.feed("/");
  }
  frame.pathLength = path_.size();
  frame.node = node;
  stack_.push_back(std::move(frame));
}

void Walk::leaveFolder() {
  Frame& frame = stack_.back();
  uint64_t subtotal = frame.subtotal;
  if (frame.node) {
    frame.node->setSize(frame.node->size() + subtotal);
    // A folder's size and children are final once it is left, so its level can be sorted now,
    // while the reading threads work ahead. The root waits for the figures added after the walk.
    if (sortWhileWalking_ && frame.node != root_) frame.node->sortChildren();
  }
  stack_.pop_back();
  if (!stack_.empty()) {
    stack_.back().subtotal += subtotal;
    path_.resize(stack_.back().pathLength);
  }
}

void Walk::addToFingerprint(const Frame& frame, const DirEntry& e, std::string_view name) {
  FingerprintHash h = frame.hash;
  h.feed(name);
  fingerprint_ += h.finishItem(e.isDirectory(), e.fileSize, e.modificationDate);
  ++fingerprintItems_;
}

void Walk::visit() {
  ++itemsVisited_;
  if (progress_ && itemsVisited_ % kProgressInterval == 0)
    reportProgress(walkProgressFraction(bytesCounted_, estimate_));
}

void Walk::reportProgress(double fraction) {
  if (!progress_) return;
  ProgressHandler handler = *progress_;
  options_.callbackExecutor([handler, bytes = bytesCounted_, items = itemsVisited_, fraction] {
    handler(bytes, items, fraction);
  });
}

void Walk::processItem(Frame& frame, std::size_t index) {
  const DirListing& listing = *frame.listing;
  const DirEntry& e = listing.entries[index];
  const std::string_view name = listing.nameView(e);
  switch (listing.dispositions[index]) {
    case Disposition::Unreadable:
      recordUnreadable(entryPath(frame, e), e.error);
      return;
    case Disposition::LeftOut:
      return;
    case Disposition::Package:
      if (mode_ == Mode::Snapshot || !volumeRoot_) addToFingerprint(frame, e, name);
      if (mode_ == Mode::Scan) visit();
      return;
    case Disposition::Item:
      break;
  }
  const bool directory = e.isDirectory();
  if (mode_ == Mode::Snapshot) {
    addToFingerprint(frame, e, name);
  } else {
    if (!volumeRoot_) addToFingerprint(frame, e, name);
    // A file with several names is counted under the first name met.
    if (!directory && e.linkCount >= 2 && !hardLinks_.insert({e.device, e.inode}).second) return;

    uint64_t size = directory ? 0 : e.allocatedSize;
    bool clone = false, elsewhere = false;
    uint64_t cloneShared = 0;
    if (size > 0 && e.clone >= 0 && listing.clones[e.clone].isClone()) {
      clone = true;
      cloneShared = size;
      if (volumeRoot_) {
        // Within one disk each clone family is charged once, preferably inside the applications.
        const std::string key = listing.clones[e.clone].key();
        const bool outsideApplications =
            systemRoot_.empty() || !isSameOrInside(entryPath(frame, e), applicationsPath_);
        if ((outsideApplications && applicationClones_.contains(key)) ||
            !chargedClones_.insert(key).second) {
          elsewhere = true;
          size = 0;
        }
      }
    }

    if (volumeRoot_ && !directory && size < kSmallFileLimit && !clone &&
        !equalsIgnoringAsciiCase(name, ".DS_Store")) {
      if (size > 0) {
        if (!frame.group) {
          frame.group = ScanNode::create(*arena_, kSmallerObjectsName, true);
          frame.group->setAggregate(true);
          frame.node->addChild(frame.group);
        }
        frame.group->setSize(frame.group->size() + size);
        bytesCounted_ += size;
        frame.subtotal += size;
      }
      visit();
      return;
    }

    ScanNode* node = ScanNode::create(*arena_, name, directory);
    // Attached first: a clone's side record is allocated from the tree the node belongs to.
    frame.node->addChild(node);
    node->setPackage(directory && isPackageName(name));
    node->setSize(size);
    node->setAPFSClone(clone);
    node->setCloneAllocationElsewhere(elsewhere);
    node->setCloneSharedSize(cloneShared);
    node->setModificationDate(e.modificationDate);
    bytesCounted_ += size;
    frame.subtotal += size;
    visit();
    if (directory) enterFolder(frame.tickets[index], node, name, entryPath(frame, e));
    return;
  }
  if (directory) enterFolder(frame.tickets[index], nullptr, name, entryPath(frame, e));
}

void Walk::walkTree() {
  prefetcher_ =
      std::make_unique<ListingPrefetcher>(std::max(0, options_.threads - 1), readOptions_, *this);
  enterFolder(prefetcher_->root(rootPath_), root_, {}, rootPath_);
  while (!stack_.empty()) {
    Frame& frame = stack_.back();
    const std::size_t depth = stack_.size();
    bool descended = false;
    while (frame.next < frame.listing->entries.size()) {
      if (cancelled()) {
        aborted_ = true;
        stack_.clear();
        return;
      }
      processItem(frame, frame.next++);
      if (stack_.size() != depth) {
        descended = true;
        break;
      }
    }
    if (!descended) leaveFolder();
  }
  prefetcher_.reset();
}

SourceSnapshot Walk::snapshot() {
  SourceSnapshot result;
  if (!openRoot()) {
    result.error = posixError(errno);
    return result;
  }
  readOptions_.probeClones = false;
  walkTree();
  result.fingerprint = fingerprint_;
  result.itemCount = fingerprintItems_;
  result.error = firstError_;
  return result;
}

// --- System-disk rules ------------------------------------------------------------------------

void Walk::gatherApplicationClones() {
  const std::string& applications = applicationsPath_;
  auto start = std::make_unique<DirListing>();
  ReadOptions options{&layout_, true};
  readDirectory(nullptr, applications, options, *start);
  std::vector<std::unique_ptr<DirListing>> pending;
  if (!start->error) pending.push_back(std::move(start));
  while (!pending.empty()) {
    std::unique_ptr<DirListing> listing = std::move(pending.back());
    pending.pop_back();
    for (const DirEntry& e : listing->entries) {
      if (cancelled()) return;
      if (e.error || e.isSymbolicLink()) continue;
      if (e.isDirectory()) {
        if (settings_.skipPackages && isPackageName(listing->nameView(e))) continue;
        auto child = std::make_unique<DirListing>();
        readDirectory(listing->descriptor.get(), listing->name(e), options, *child);
        if (!child->error) pending.push_back(std::move(child));
      } else if (e.clone >= 0 && listing->clones[e.clone].isClone()) {
        applicationClones_.insert(listing->clones[e.clone].key());
      }
    }
  }
}

ScanNode* Walk::findFolderNode(std::string_view path) {
  if (path == rootPath_) return root_;
  if (!isInside(path, rootPath_)) return nullptr;
  std::string_view rest = path.substr(rootPath_.size());
  ScanNode* node = root_;
  while (!rest.empty()) {
    while (rest.starts_with('/')) rest.remove_prefix(1);
    std::size_t slash = rest.find('/');
    std::string_view step = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    if (step.empty()) break;
    ScanNode* found = nullptr;
    for (ScanNode* child : node->children())
      if (child->isDirectory() && !child->isSynthetic() && child->name() == step) found = child;
    if (!found) return nullptr;
    node = found;
  }
  return node;
}

void Walk::addSystemVolumes() {
  const std::string volumes = systemRoot_ + "/System/Volumes";
  const std::string data = volumes + "/Data";
  const std::string vm = volumes + "/VM";
  for (const SystemVolume& volume : layout_.mountedSystemVolumes()) {
    if (cancelled()) return;
    const std::string mountPath = standardizePath(volume.mountPath);
    if (!isInside(mountPath, volumes) || isSameOrInside(mountPath, data)) continue;
    if (volume.spaceUsed == 0) continue;
    ScanNode* node = findFolderNode(mountPath);
    if (!node) {
      ScanNode* parent = findFolderNode(parentPath(mountPath));
      if (!parent) parent = findFolderNode(systemRoot_ + "/System");
      if (!parent) continue;
      node = parent->createNode(displayNameForPath(mountPath), true);
      if (parentPath(mountPath) != parent->path()) node->setPath(mountPath);
      parent->addChild(node);
    }
    if (mountPath == vm) {
      uint64_t sum = 0;
      std::unordered_set<std::string> present;
      for (ScanNode* child : node->children()) {
        sum += child->size();
        if (!child->isSynthetic()) present.insert(child->path());
      }
      DirListing listing;
      readDirectory(nullptr, mountPath, ReadOptions{&layout_, false}, listing);
      for (const DirEntry& e : listing.entries) {
        if (e.error || !e.isRegularFile()) continue;
        if (present.contains(appendPathComponent(mountPath, listing.nameView(e)))) continue;
        if (e.allocatedSize == 0) continue;
        ScanNode* file = node->createNode(listing.nameView(e), false);
        file->setSize(e.allocatedSize);
        file->setModificationDate(e.modificationDate);
        node->addChild(file);
        sum += e.allocatedSize;
      }
      if (volume.spaceUsed > sum) {
        ScanNode* other = node->createNode(kOtherSystemDataName, false);
        other->setAggregate(true);
        other->setSize(volume.spaceUsed - sum);
        node->addChild(other);
      }
    }
    if (volume.spaceUsed > node->size()) {
      const uint64_t extra = volume.spaceUsed - node->size();
      for (ScanNode* n = node; n; n = n->parent()) n->setSize(n->size() + extra);
      bytesCounted_ += extra;
    }
  }
}

void Walk::checkProtectedLocations() {
  for (const std::string& location : layout_.protectedLocations()) {
    const std::string path = systemRoot_ + location;
    ScanNode* node = findFolderNode(path);
    if (!node || node->size() == 0) {
      Error error{kScanErrorDomain, kProtectedLocationErrorCode, kProtectedLocationMessage};
      issues_.record(path, &error);
    }
  }
}

void Walk::addHiddenSpace() {
  const uint64_t capacity = root_->volumeCapacity();
  if (capacity == 0) return;
  const uint64_t free = root_->volumeFreeSpace();
  const uint64_t used = capacity > free ? capacity - free : 0;
  if (used > root_->size()) {
    ScanNode* hidden = root_->createNode(kHiddenSpaceName, false);
    hidden->setVirtualNode(true);
    hidden->setSize(used - root_->size());
    root_->addChild(hidden);
  }
  root_->setSize(used);
}

ScanResult Walk::scan() {
  ScanResult result;
  const double walkStart = monotonicSeconds();
  // Step one: the root and, for a whole disk, its figures.
  struct statx st {};
  const bool directory =
      statx(AT_FDCWD, rootPath_.c_str(), 0, STATX_TYPE, &st) == 0 && S_ISDIR(st.stx_mode);
  rootRef_ = ScanNode::makeRoot(rootPath_, directory);
  root_ = rootRef_.get();
  arena_ = &root_->arena();
  arena_->setExclusive(true);
  if (auto volume = layout_.volumeForPath(rootPath_)) {
    const std::string mount = standardizePath(volume->mountPath);
    if (!mount.empty() && mount == rootPath_) {
      volumeRoot_ = true;
      root_->setVolumeRoot(true);
      if (!volume->name.empty()) root_->setName(volume->name);
      root_->setVolumeCapacity(volume->totalCapacity);
      root_->setVolumeFreeSpace(volume->availableCapacity);
      root_->setVolumeAvailableSpace(
          std::max(volume->availableForImportantUsage, volume->availableCapacity));
    }
  }
  const std::string systemRoot = standardizePath(layout_.systemRoot());
  if (volumeRoot_ && !systemRoot.empty() && systemRoot == rootPath_) {
    systemRoot_ = systemRoot;
    dataVolumePath_ = systemRoot_ + "/System/Volumes/Data";
    otherVolumesPath_ = systemRoot_ + "/Volumes";
    applicationsPath_ = systemRoot_ + "/Applications";
  }

  sortWhileWalking_ = systemRoot_.empty();
  if (!openRoot()) {
    recordUnreadable(rootPath_, errno);
  } else {
    if (!systemRoot_.empty()) gatherApplicationClones();
    if (!cancelled()) walkTree();
  }
  if (cancelled() || aborted_) {
    arena_->setExclusive(false);
    result.cancelled = true;
    return result;
  }
  if (!systemRoot_.empty()) {
    addSystemVolumes();
    if (!cancelled()) checkProtectedLocations();
  }
  if (cancelled()) {
    arena_->setExclusive(false);
    result.cancelled = true;
    return result;
  }
  root_->setScanDate(nowSeconds());
  root_->setScanIssues(issues_.take());
  if (!volumeRoot_) {
    root_->setSourceFingerprint(fingerprint_);
    root_->setSourceItemCount(fingerprintItems_);
  }
  reportProgress(estimate_ ? 0.92 : -1.0);
  if (estimate_) reportProgress(0.97);
  if (volumeRoot_) addHiddenSpace();
  const double sortStart = monotonicSeconds();
  result.statistics.walkSeconds = sortStart - walkStart;
  const CancelCheck shouldCancel = [this] { return cancelled(); };
  const bool sorted =
      sortWhileWalking_ ? root_->sortChildren(shouldCancel) : root_->sortRecursively(shouldCancel);
  result.statistics.sortSeconds = monotonicSeconds() - sortStart;
  arena_->setExclusive(false);
  if (!sorted) {
    result.cancelled = true;
    return result;
  }
  if (estimate_) reportProgress(0.995);
  result.statistics.itemsVisited = itemsVisited_;
  result.root = std::move(rootRef_);
  return result;
}

}  // namespace

ScanResult runScanWalk(const std::string& path, const DirectoryScanner::Options& options,
                       const ScanSettings& settings, uint64_t estimatedTotalBytes,
                       const ProgressHandler* progress, const std::atomic<bool>& cancel) {
  Walk walk(Walk::Mode::Scan, path, options, settings, estimatedTotalBytes, progress, cancel);
  return walk.scan();
}

SourceSnapshot runSnapshotWalk(const std::string& path, const DirectoryScanner::Options& options,
                               const ScanSettings& settings) {
  static const std::atomic<bool> kNeverCancelled{false};
  Walk walk(Walk::Mode::Snapshot, path, options, settings, 0, nullptr, kNeverCancelled);
  return walk.snapshot();
}

}  // namespace tw
