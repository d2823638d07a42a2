// Memory of one scan tree: nodes, names and child arrays are carved from large chunks so that a
// million-entry tree costs a few dozen bytes per entry and is freed in one go with its root.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace tw {

struct ScanNodeExtra;

class NodeArena {
 public:
  NodeArena() = default;
  NodeArena(const NodeArena&) = delete;
  NodeArena& operator=(const NodeArena&) = delete;
  ~NodeArena();

  // Builders that own the tree exclusively (the scanner's walk) switch locking off while they
  // build; a tree handed to other threads always locks, since lazy loaders allocate from it.
  void setExclusive(bool exclusive) { exclusive_ = exclusive; }

  // Storage for one node record. Node records live in 4 KiB pages that begin with a pointer
  // to their arena, so any node finds its arena in constant time.
  void* allocateNode();
  static NodeArena* arenaOfNode(const void* node) {
    return *reinterpret_cast<NodeArena* const*>(reinterpret_cast<std::uintptr_t>(node) &
                                                ~(kNodePageSize - 1));
  }
  static constexpr std::size_t kNodePageSize = 4096;
  static constexpr std::size_t kNodeRecordSize = 56;

  // Raw storage for one object of `size` bytes, aligned to 8.
  void* allocate(std::size_t size);
  // A NUL-terminated copy of `text`.
  const char* copyString(std::string_view text);
  // Arrays of node pointers come in power-of-two capacities; a released array is reused.
  void** allocatePointerArray(unsigned capacityLog2);
  void releasePointerArray(void** array, unsigned capacityLog2);
  // Side records are destroyed with the arena.
  ScanNodeExtra* newExtra();

  std::size_t bytesReserved() const { return reserved_; }

 private:
  struct Lock {
    explicit Lock(NodeArena& a) : arena(a) {
      if (!arena.exclusive_) arena.mutex_.lock();
    }
    ~Lock() {
      if (!arena.exclusive_) arena.mutex_.unlock();
    }
    NodeArena& arena;
  };
  void* allocateLocked(std::size_t size);

  std::mutex mutex_;
  bool exclusive_ = false;
  char* cursor_ = nullptr;
  char* end_ = nullptr;
  std::size_t nextChunk_ = 4096;
  std::size_t reserved_ = 0;
  std::vector<void*> chunks_;
  std::vector<void*> nodeChunks_;
  char* nodeCursor_ = nullptr;  // next free record in the current node page
  char* nodePageEnd_ = nullptr;
  char* nodeChunkEnd_ = nullptr;
  std::size_t nextNodeChunkPages_ = 1;
  std::vector<std::unique_ptr<ScanNodeExtra>> extras_;
  void** freeArrays_[32] = {};
};

}  // namespace tw
