// A safety check of a binary property list's object graph, run before the bytes reach the
// parser. The parser copies every reference into a tree of its own and recurses once per level,
// so a small file whose containers refer to each other in a cycle, nest thousands of levels deep
// or share containers exponentially would exhaust its stack or the memory. The check walks the
// graph without recursion and refuses such files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tw {

struct BinaryPlistLimits {
  // Containers inside containers; a keyed archive needs four.
  std::size_t maxDepth = 256;
  // Objects of the tree the parser builds, counting a shared object once per reference. Zero
  // means 16 per byte of input, far above what any writer produces without sharing containers.
  uint64_t maxExpandedObjects = 0;
};

// Nothing when the file's header, trailer, offset table and container references are sound
// and within `limits`; otherwise a sentence saying what is wrong.
std::optional<std::string> checkBinaryPlist(std::span<const uint8_t> bytes,
                                            const BinaryPlistLimits& limits = {});

}  // namespace tw
