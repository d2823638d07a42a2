#include "scan/scan_node.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "platform/natural_order.h"
#include "platform/paths.h"

namespace tw {

static_assert(sizeof(ScanNode) == ScanNode::kRecordSize, "node pages hold whole 56-byte records");

namespace {

// Child arrays have power-of-two capacities of at least four, derived from the count alone.
unsigned capacityLog2For(uint32_t count) {
  if (count <= 4) return 2;
  return static_cast<unsigned>(std::bit_width(count - 1));
}

bool isVolumeRootKeeper(std::string_view name) {
  return name == "Users" || name == "System" || name == "Applications" || name == "private" ||
         name == "Library";
}

}  // namespace

ScanNode::ScanNode(const char* name, std::size_t length, bool directory)
    : name_(name), nameLength_(length < kLongName ? static_cast<uint8_t>(length) : kLongName) {
  setDirectory(directory);
}

ScanNode* ScanNode::construct(NodeArena& arena, std::string_view name, bool directory) {
  const char* copy = arena.copyString(name);
  return new (arena.allocateNode()) ScanNode(copy, name.size(), directory);
}

ScanNodeRef ScanNode::makeRoot(std::string_view path, bool directory) {
  auto* arena = new NodeArena();
  ScanNode* node = construct(*arena, displayNameForPath(path), directory);
  ScanNodeExtra* extra = node->ensureExtraIn(*arena);
  extra->path.assign(path);
  extra->hasPath = true;
  ScanNodeRef ref(node, [arena](ScanNode*) { delete arena; });
  extra->self = ref;
  return ref;
}

ScanNode* ScanNode::createNode(std::string_view name, bool directory) {
  ScanNode* node = construct(arena(), name, directory);
  node->parent_ = this;  // until it is attached elsewhere
  return node;
}

ScanNode* ScanNode::createDetachedNode(std::string_view name, bool directory) {
  NodeArena& a = arena();
  ScanNode* node = construct(a, name, directory);
  node->ensureExtraIn(a)->self = treeRoot()->extra()->self;
  return node;
}

ScanNode* ScanNode::treeRoot() {
  ScanNode* node = this;
  while (node->parent_) node = node->parent_;
  return node;
}

NodeArena& ScanNode::arena() {
  return *NodeArena::arenaOfNode(this);
}

ScanNodeRef ScanNode::ref() {
  ScanNodeRef root = treeRoot()->extra()->self.lock();
  return root ? ScanNodeRef(root, this) : nullptr;
}

void ScanNode::setName(std::string_view name) {
  name_ = arena().copyString(name);
  nameLength_ = name.size() < kLongName ? static_cast<uint8_t>(name.size()) : kLongName;
}

bool ScanNode::hasOwnPath() const {
  ScanNodeExtra* e = extra();
  return e && e->hasPath;
}

void ScanNode::setPath(std::string_view path) {
  ScanNodeExtra* e = ensureExtra();
  e->path.assign(path);
  e->hasPath = true;
}

std::string ScanNode::path() const {
  // Collect the named steps up to the nearest node that knows its own path.
  const ScanNode* steps[64];
  std::vector<const ScanNode*> more;
  std::size_t count = 0;
  const ScanNode* node = this;
  for (; node && !node->hasOwnPath(); node = node->parent_) {
    if (node->isSynthetic()) continue;
    if (count < std::size(steps)) {
      steps[count++] = node;
    } else {
      more.push_back(node);
    }
  }
  std::string out = node ? node->extra()->path : std::string();
  auto append = [&out](const ScanNode* step) {
    if (out.empty() || out.back() != '/') out.push_back('/');
    out.append(step->name());
  };
  for (auto it = more.rbegin(); it != more.rend(); ++it) append(*it);
  while (count) append(steps[--count]);
  return out;
}

ScanNodeExtra* ScanNode::ensureExtra() {
  if (ScanNodeExtra* e = extra()) return e;
  return ensureExtraIn(arena());
}

ScanNodeExtra* ScanNode::ensureExtraIn(NodeArena& arena) {
  if (ScanNodeExtra* e = extra()) return e;
  ScanNodeExtra* made = arena.newExtra();
  ScanNodeExtra* expected = nullptr;
  if (extra_.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) return made;
  return expected;  // another thread made one first; ours stays unused in the arena
}

std::recursive_mutex& ScanNode::lock() {
  ScanNodeExtra* e = ensureExtra();
  if (std::recursive_mutex* m = e->lock.load(std::memory_order_acquire)) return *m;
  auto* made = new std::recursive_mutex();
  std::recursive_mutex* expected = nullptr;
  if (e->lock.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) return *made;
  delete made;
  return *expected;
}

uint64_t ScanNode::cloneSharedSize() const {
  ScanNodeExtra* e = extra();
  return e ? e->cloneSharedSize : 0;
}

void ScanNode::setCloneSharedSize(uint64_t size) {
  if (size == 0 && !extra()) return;
  ensureExtra()->cloneSharedSize = size;
}

#define TW_EXTRA_GETTER(type, field) \
  type ScanNode::field() const {     \
    ScanNodeExtra* e = extra();      \
    return e ? e->field : type{};    \
  }
TW_EXTRA_GETTER(uint64_t, volumeCapacity)
TW_EXTRA_GETTER(uint64_t, volumeFreeSpace)
TW_EXTRA_GETTER(uint64_t, volumeAvailableSpace)
TW_EXTRA_GETTER(uint64_t, sourceFingerprint)
TW_EXTRA_GETTER(int64_t, sourceItemCount)
TW_EXTRA_GETTER(double, scanDate)
TW_EXTRA_GETTER(int64_t, databaseNodeID)
TW_EXTRA_GETTER(std::shared_ptr<ScanStore>, scanStore)
#undef TW_EXTRA_GETTER

const std::vector<ScanIssue>& ScanNode::scanIssues() const {
  static const std::vector<ScanIssue> kNone;
  ScanNodeExtra* e = extra();
  return e ? e->scanIssues : kNone;
}

// --- Children -------------------------------------------------------------------------------

std::span<ScanNode* const> ScanNode::children() {
  // Plain nodes built by the scanner have no loader and no lock.
  if (!extra() && isChildrenLoaded()) return {children_, childCount_};
  std::lock_guard guard(lock());
  ScanNodeExtra* e = extra();
  if (!isChildrenLoaded() && e->loader) {
    ChildrenLoader loader = std::move(e->loader);
    e->loader = nullptr;
    std::vector<ScanNode*> loaded = loader(*this);
    for (ScanNode* child : loaded) child->parent_ = this;
    storeChildren(loaded);
    loaded_.store(true, std::memory_order_release);
  }
  return {children_, childCount_};
}

void ScanNode::storeChildren(std::span<ScanNode* const> children) {
  // The old array is left in the arena: a reader may still hold a view of it.
  children_ = nullptr;
  childCount_ = 0;
  if (children.empty()) return;
  auto count = static_cast<uint32_t>(children.size());
  children_ = reinterpret_cast<ScanNode**>(arena().allocatePointerArray(capacityLog2For(count)));
  std::copy(children.begin(), children.end(), children_);
  childCount_ = count;
}

void ScanNode::setChildren(std::span<ScanNode* const> children) {
  std::lock_guard guard(lock());
  std::vector<ScanNode*> copy;
  for (ScanNode* child : children)
    if (child) copy.push_back(child);
  storeChildren(copy);
  extra()->loader = nullptr;
  loaded_.store(true, std::memory_order_release);
}

void ScanNode::setLazyChildrenLoader(ChildrenLoader loader) {
  std::lock_guard guard(lock());
  children_ = nullptr;
  childCount_ = 0;
  extra()->loader = std::move(loader);
  loaded_.store(false, std::memory_order_release);
}

void ScanNode::appendChild(ScanNode* child) {
  if (childCount_ == 0 || (childCount_ >= 4 && std::has_single_bit(childCount_))) {
    NodeArena& a = arena();
    unsigned log2 = capacityLog2For(childCount_ + 1);
    auto** grown = reinterpret_cast<ScanNode**>(a.allocatePointerArray(log2));
    if (childCount_) {
      std::copy(children_, children_ + childCount_, grown);
      a.releasePointerArray(reinterpret_cast<void**>(children_), capacityLog2For(childCount_));
    }
    children_ = grown;
  }
  children_[childCount_++] = child;
}

void ScanNode::addChild(ScanNode* child) {
  if (!child) return;
  children();
  appendChild(child);
  child->parent_ = this;
}

// --- Ordering -------------------------------------------------------------------------------

bool ScanNode::precedes(const ScanNode* a, const ScanNode* b) {
  if (a->isVirtualNode() != b->isVirtualNode()) return !a->isVirtualNode();
  if (a->isAggregate() != b->isAggregate()) return !a->isAggregate();
  if (a->size_ != b->size_) return a->size_ > b->size_;
  return naturalCompare(a->name(), b->name()) < 0;
}

void ScanNode::dropEmptyAggregates(std::vector<ScanNode*>& nodes) {
  std::erase_if(nodes, [](const ScanNode* n) { return n->isAggregate() && n->size_ == 0; });
}

bool ScanNode::sortOneLevel(NodeArena& arena, const CancelCheck& shouldCancel) {
  if (shouldCancel && shouldCancel()) return false;
  if (!isChildrenLoaded()) children();
  ScanNode** first = children_;
  ScanNode** last = std::remove_if(first, first + childCount_, [](const ScanNode* n) {
    return n->isAggregate() && n->size_ == 0;
  });
  childCount_ = static_cast<uint32_t>(last - first);
  std::sort(first, last, precedes);

  if (isAggregate() || size_ == 0 || childCount_ < 9) return true;
  const double factor = isVolumeRoot() ? 0.0005 : 0.005;
  const auto threshold = static_cast<uint64_t>(static_cast<double>(size_) * factor);
  std::vector<ScanNode*> kept, small;
  for (uint32_t i = 0; i < childCount_; ++i) {
    if (shouldCancel && shouldCancel()) return false;
    ScanNode* child = children_[i];
    if (child->isAPFSClone() || (isVolumeRoot() && isVolumeRootKeeper(child->name())) ||
        child->size_ > threshold) {
      kept.push_back(child);
    } else {
      small.push_back(child);
    }
  }
  if (small.size() < 2) return true;

  ScanNode* group = construct(arena, kSmallerObjectsName, true);
  group->parent_ = this;
  group->setAggregate(true);
  uint64_t sum = 0;
  for (ScanNode* child : small) {
    group->appendChild(child);
    child->parent_ = group;
    sum += child->size_;
  }
  group->size_ = sum;
  if (sum == 0) {
    for (ScanNode* child : small) child->parent_ = this;
    return true;
  }
  kept.push_back(group);
  std::sort(kept.begin(), kept.end(), precedes);
  std::copy(kept.begin(), kept.end(), children_);
  childCount_ = static_cast<uint32_t>(kept.size());
  return true;
}

bool ScanNode::sortChildren(const CancelCheck& shouldCancel) {
  return sortOneLevel(arena(), shouldCancel);
}

bool ScanNode::sortRecursively(const CancelCheck& shouldCancel) {
  NodeArena& a = arena();
  // An explicit stack: trees deeper than the thread's stack allows must sort too.
  std::vector<ScanNode*> pending{this};
  while (!pending.empty()) {
    ScanNode* node = pending.back();
    pending.pop_back();
    if (!node->sortOneLevel(a, shouldCancel)) return false;
    for (uint32_t i = 0; i < node->childCount_; ++i) {
      if (shouldCancel && shouldCancel()) return false;
      node->children_[i]->parent_ = node;
    }
    for (uint32_t i = node->childCount_; i-- > 0;) pending.push_back(node->children_[i]);
  }
  return true;
}

}  // namespace tw
