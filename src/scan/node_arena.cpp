#include "scan/node_arena.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "scan/scan_node.h"

namespace tw {

namespace {
constexpr std::size_t kMaxChunk = std::size_t{1} << 20;
}

NodeArena::~NodeArena() {
  extras_.clear();
  for (void* chunk : chunks_) std::free(chunk);
  for (void* chunk : nodeChunks_) std::free(chunk);
}

void* NodeArena::allocateNode() {
  Lock lock(*this);
  if (nodeCursor_ + kNodeRecordSize > nodePageEnd_) {
    if (nodePageEnd_ == nodeChunkEnd_) {
      const std::size_t bytes = nextNodeChunkPages_ * kNodePageSize;
      if (nextNodeChunkPages_ < 64) nextNodeChunkPages_ *= 2;
      char* chunk = static_cast<char*>(std::aligned_alloc(kNodePageSize, bytes));
      if (!chunk) throw std::bad_alloc();
      nodeChunks_.push_back(chunk);
      reserved_ += bytes;
      nodePageEnd_ = chunk;
      nodeChunkEnd_ = chunk + bytes;
    }
    char* page = nodePageEnd_;
    *reinterpret_cast<NodeArena**>(page) = this;
    nodeCursor_ = page + sizeof(NodeArena*);
    nodePageEnd_ = page + kNodePageSize;
  }
  void* result = nodeCursor_;
  nodeCursor_ += kNodeRecordSize;
  return result;
}

void* NodeArena::allocateLocked(std::size_t size) {
  size = (size + 7) & ~std::size_t{7};
  if (static_cast<std::size_t>(end_ - cursor_) < size) {
    std::size_t chunk = nextChunk_;
    while (chunk < size) chunk *= 2;
    if (nextChunk_ < kMaxChunk) nextChunk_ *= 2;
    cursor_ = static_cast<char*>(std::malloc(chunk));
    if (!cursor_) throw std::bad_alloc();
    end_ = cursor_ + chunk;
    reserved_ += chunk;
    chunks_.push_back(cursor_);
  }
  void* result = cursor_;
  cursor_ += size;
  return result;
}

void* NodeArena::allocate(std::size_t size) {
  Lock lock(*this);
  return allocateLocked(size);
}

const char* NodeArena::copyString(std::string_view text) {
  Lock lock(*this);
  char* copy = static_cast<char*>(allocateLocked(text.size() + 1));
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

void** NodeArena::allocatePointerArray(unsigned capacityLog2) {
  Lock lock(*this);
  if (void** reused = freeArrays_[capacityLog2]) {
    freeArrays_[capacityLog2] = static_cast<void**>(reused[0]);
    return reused;
  }
  return static_cast<void**>(allocateLocked(sizeof(void*) << capacityLog2));
}

void NodeArena::releasePointerArray(void** array, unsigned capacityLog2) {
  if (!array) return;
  Lock lock(*this);
  array[0] = freeArrays_[capacityLog2];
  freeArrays_[capacityLog2] = array;
}

ScanNodeExtra* NodeArena::newExtra() {
  auto extra = std::make_unique<ScanNodeExtra>();
  Lock lock(*this);
  extras_.push_back(std::move(extra));
  return extras_.back().get();
}

}  // namespace tw
