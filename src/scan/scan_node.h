// Scan engine: the scan node tree.
//
// A ScanNode is one entry of a scan: a file, a folder, a package, a mounted system volume or one of
// the synthetic entries "smaller objects…", "other system data…" and "hidden space…". The directory
// scanner builds whole trees of them; the scan database hands out nodes whose children load on
// first use. A tree owns all of its nodes: they live in the tree's NodeArena and are freed together
// when the last ScanNodeRef into the tree goes away. A node's parent is a plain back pointer, and a
// node's path is rebuilt from the parent chain rather than stored, which keeps a million-entry scan
// within a few dozen bytes per entry. Rarely used fields (root figures, clone figures, database
// identity, the lazy loader and the per-node lock) live in a side record made on first use.
#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "scan/node_arena.h"

namespace tw {

class ScanStore;
class ScanNode;

// A shared handle to a node; it keeps the node's whole tree (and so its parents) alive.
using ScanNodeRef = std::shared_ptr<ScanNode>;
// Produces a node's children on first use. It runs under the node's lock and allocates the
// children with node.createNode(); an empty result stands for "no children".
using ChildrenLoader = std::function<std::vector<ScanNode*>(ScanNode& node)>;
// Answers true when the work in progress should stop.
using CancelCheck = std::function<bool()>;

// One problem met during a walk, as stored with the scan ("path" and "message").
struct ScanIssue {
  std::string path;
  std::string message;
  bool operator==(const ScanIssue&) const = default;
};

// Names of the synthetic entries. Each ends in the single character U+2026.
inline constexpr std::string_view kSmallerObjectsName = "smaller objects\u2026";
inline constexpr std::string_view kOtherSystemDataName = "other system data\u2026";
inline constexpr std::string_view kHiddenSpaceName = "hidden space\u2026";

// The side record of a node: everything most nodes never need.
struct ScanNodeExtra {
  ~ScanNodeExtra() { delete lock.load(); }

  std::string path;  // the node's own path; set on roots and on nodes read from a store
  bool hasPath = false;
  uint64_t cloneSharedSize = 0;
  // Root-only figures.
  uint64_t volumeCapacity = 0;
  uint64_t volumeFreeSpace = 0;
  uint64_t volumeAvailableSpace = 0;
  uint64_t sourceFingerprint = 0;
  int64_t sourceItemCount = 0;
  double scanDate = 0;
  std::vector<ScanIssue> scanIssues;
  // Database identity.
  int64_t databaseNodeID = 0;
  std::shared_ptr<ScanStore> scanStore;
  ChildrenLoader loader;
  // The handle of a tree, set on the node it was made from.
  std::weak_ptr<ScanNode> self;
  std::atomic<std::recursive_mutex*> lock{nullptr};
};

class ScanNode {
 public:
  // Making nodes and trees.
  // A new tree holding one node; `path` is stored as the node's own path. The name is the last
  // path component, or the whole path when that component is empty (so "/" is named "/").
  static ScanNodeRef makeRoot(std::string_view path, bool directory);
  // A new node in this node's tree, not yet attached to any parent. Safe from any thread.
  ScanNode* createNode(std::string_view name, bool directory);
  // A new node in this node's tree that has no parent and stands on its own as a root does
  // (answers of scan database queries are made so); ref() on it keeps the tree alive. Thread-safe.
  ScanNode* createDetachedNode(std::string_view name, bool directory);
  // A new node in `arena`, for builders that hold the tree's arena already.
  static ScanNode* create(NodeArena& arena, std::string_view name, bool directory) {
    return construct(arena, name, directory);
  }
  // A handle that keeps this node's tree alive.
  ScanNodeRef ref();
  ScanNode* treeRoot();
  NodeArena& arena();

  // Name, path and parent.
  std::string_view name() const {
    return nameLength_ != kLongName ? std::string_view(name_, nameLength_)
                                    : std::string_view(name_);
  }
  void setName(std::string_view name);
  // The item's location: the own path where one is set, else the parent's path followed by the
  // name. Synthetic entries carry their folder's path.
  std::string path() const;
  void setPath(std::string_view path);
  bool hasOwnPath() const;
  ScanNode* parent() const { return parent_; }
  void setParent(ScanNode* parent) { parent_ = parent; }

  // Flags.
  bool isDirectory() const { return flags_ & kDirectory; }
  bool isPackage() const { return flags_ & kPackage; }
  bool isAggregate() const { return flags_ & kAggregate; }
  bool isVolumeRoot() const { return flags_ & kVolumeRoot; }
  bool isVirtualNode() const { return flags_ & kVirtual; }
  bool isAPFSClone() const { return flags_ & kClone; }
  bool isCloneAllocationElsewhere() const { return flags_ & kCloneElsewhere; }
  bool isChildrenLoaded() const { return loaded_.load(std::memory_order_acquire); }
  // Aggregate and virtual entries stand for space, not for an item of their own.
  bool isSynthetic() const { return flags_ & (kAggregate | kVirtual); }
  void setDirectory(bool on) { setFlag(kDirectory, on); }
  void setPackage(bool on) { setFlag(kPackage, on); }
  void setAggregate(bool on) { setFlag(kAggregate, on); }
  void setVolumeRoot(bool on) { setFlag(kVolumeRoot, on); }
  void setVirtualNode(bool on) { setFlag(kVirtual, on); }
  void setAPFSClone(bool on) { setFlag(kClone, on); }
  void setCloneAllocationElsewhere(bool on) { setFlag(kCloneElsewhere, on); }

  // Sizes (bytes allocated on disk) and dates (seconds since 1970).
  uint64_t size() const { return size_; }
  void setSize(uint64_t size) { size_ = size; }
  uint64_t cloneSharedSize() const;
  void setCloneSharedSize(uint64_t size);
  // The modification date is NaN when unknown (synthetic entries, rows without one); 0 is a
  // real date, the first second of 1970.
  double modificationDate() const { return modificationDate_; }
  bool hasModificationDate() const { return !std::isnan(modificationDate_); }
  void setModificationDate(double date) { modificationDate_ = date; }

  // Root-only figures; reading them from a node without a side record gives 0 or empty.
  uint64_t volumeCapacity() const;
  uint64_t volumeFreeSpace() const;
  uint64_t volumeAvailableSpace() const;
  uint64_t sourceFingerprint() const;
  int64_t sourceItemCount() const;
  double scanDate() const;
  const std::vector<ScanIssue>& scanIssues() const;
  void setVolumeCapacity(uint64_t v) { ensureExtra()->volumeCapacity = v; }
  void setVolumeFreeSpace(uint64_t v) { ensureExtra()->volumeFreeSpace = v; }
  void setVolumeAvailableSpace(uint64_t v) { ensureExtra()->volumeAvailableSpace = v; }
  void setSourceFingerprint(uint64_t v) { ensureExtra()->sourceFingerprint = v; }
  void setSourceItemCount(int64_t v) { ensureExtra()->sourceItemCount = v; }
  void setScanDate(double v) { ensureExtra()->scanDate = v; }
  void setScanIssues(std::vector<ScanIssue> issues) {
    ensureExtra()->scanIssues = std::move(issues);
  }

  // Database identity of a node read from a scan database.
  int64_t databaseNodeID() const;
  void setDatabaseNodeID(int64_t id) { ensureExtra()->databaseNodeID = id; }
  std::shared_ptr<ScanStore> scanStore() const;
  void setScanStore(std::shared_ptr<ScanStore> store) {
    ensureExtra()->scanStore = std::move(store);
  }

  // Children. children() runs a pending loader once, under this node's lock; the returned view
  // stays valid until the children are replaced.
  std::span<ScanNode* const> children();
  // Stores the list (not touching the children's parent) and drops any pending loader.
  void setChildren(std::span<ScanNode* const> children);
  // Empties the list and leaves `loader` to fill it on first use.
  void setLazyChildrenLoader(ChildrenLoader loader);
  // Appends `child` (after forcing a pending load) and makes this node its parent. For building.
  void addChild(ScanNode* child);

  // Ordering.
  // The child order: ordinary entries, then aggregates, then virtual entries; within each, larger
  // first, then by name in the natural order.
  static bool precedes(const ScanNode* a, const ScanNode* b);
  // Removes aggregate entries of size 0.
  static void dropEmptyAggregates(std::vector<ScanNode*>& nodes);
  // Sorts the whole subtree by the child order and groups small children into "smaller
  // objects…". Returns false when `shouldCancel` answered true; the tree is then partly sorted.
  bool sortRecursively(const CancelCheck& shouldCancel = nullptr);
  // One level of sortRecursively: this node's own children, not theirs. Sorting a level twice
  // may group it twice, so a builder that sorts levels as it goes sorts each exactly once.
  bool sortChildren(const CancelCheck& shouldCancel = nullptr);

  // Size of one node record, for memory accounting.
  static constexpr std::size_t kRecordSize = NodeArena::kNodeRecordSize;

 private:
  enum : uint16_t {
    kDirectory = 1 << 0,
    kPackage = 1 << 1,
    kAggregate = 1 << 2,
    kVolumeRoot = 1 << 3,
    kVirtual = 1 << 4,
    kClone = 1 << 5,
    kCloneElsewhere = 1 << 6,
  };

  ScanNode(const char* name, std::size_t length, bool directory);
  static ScanNode* construct(NodeArena& arena, std::string_view name, bool directory);
  void setFlag(uint16_t flag, bool on) { flags_ = on ? (flags_ | flag) : (flags_ & ~flag); }
  ScanNodeExtra* extra() const { return extra_.load(std::memory_order_acquire); }
  ScanNodeExtra* ensureExtra();
  ScanNodeExtra* ensureExtraIn(NodeArena& arena);
  std::recursive_mutex& lock();
  void storeChildren(std::span<ScanNode* const> children);
  void appendChild(ScanNode* child);
  void appendPath(std::string& out) const;
  bool sortOneLevel(NodeArena& arena, const CancelCheck& shouldCancel);

  ScanNode* parent_ = nullptr;
  ScanNode** children_ = nullptr;
  std::atomic<ScanNodeExtra*> extra_{nullptr};
  const char* name_ = "";
  uint64_t size_ = 0;
  double modificationDate_ = std::numeric_limits<double>::quiet_NaN();
  uint32_t childCount_ = 0;
  uint16_t flags_ = 0;
  std::atomic<bool> loaded_{true};
  uint8_t nameLength_ = 0;  // kLongName: measure the name instead
  static constexpr uint8_t kLongName = 255;

  friend class NodeArena;
};

}  // namespace tw
