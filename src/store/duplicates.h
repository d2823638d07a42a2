// What a duplicate search over a saved scan answers: groups of files with equal allocated size and
// equal SHA-256 contents, a map from each member's path to its group, and the knobs and figures of
// one search. The search itself is ScanStore::duplicateFilesUnderNode.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "scan/scan_node.h"

namespace tw {

// Files with the same allocated size and the same checksum, in the order the store lists them
// (largest first, then by path ignoring ASCII case).
struct DuplicateGroup {
  std::string key;  // "size:CHECKSUM" with the checksum in upper-case hexadecimal
  uint64_t size = 0;
  std::vector<ScanNodeRef> files;
};

// The standardized path of every listed member → the index of its group.
using DuplicateGroupsByPath = std::unordered_map<std::string, std::size_t>;

// Called after each stored batch with the groups known so far; `finished` on the last batch.
using DuplicateProgress =
    std::function<void(const std::vector<DuplicateGroup>& groups,
                       const DuplicateGroupsByPath& groupsByPath, bool finished)>;

// The read through which files are hashed; a test may make a file change while it is read.
using HashReadCall = ssize_t (*)(int fd, void* buffer, size_t count);

struct DuplicateSearchOptions {
  DuplicateProgress progress;
  CancelCheck shouldCancel;     // asked between files and batches; stops within one batch
  int threads = 2;              // threads reading and hashing files
  HashReadCall read = nullptr;  // the system's read when null
};

// What one search did.
struct DuplicateSearchFigures {
  uint64_t candidates = 0;        // files sharing their allocated size with another
  uint64_t clearedChecksums = 0;  // stale checksums removed
  uint64_t hashedFiles = 0;       // files whose checksum was stored this run
  uint64_t hashedBytes = 0;       // bytes read to compute them
  uint64_t storedBatches = 0;
  bool cancelled = false;
};

}  // namespace tw
