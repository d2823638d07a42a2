#include "store/binary_plist_check.h"

#include <cstring>
#include <vector>

namespace tw {

namespace {

// File format: "bplist00", the objects, the offset table, then a 32-byte trailer.
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
constexpr uint8_t kArrayType = 0xA;
constexpr uint8_t kSetType = 0xC;
constexpr uint8_t kDictType = 0xD;
constexpr uint8_t kIntType = 0x1;
constexpr uint8_t kAsciiStringType = 0x5;
constexpr uint8_t kUnicodeStringType = 0x6;

uint64_t readBigEndian(const uint8_t* p, unsigned size) {
  uint64_t v = 0;
  for (unsigned i = 0; i < size; ++i) v = v << 8 | p[i];
  return v;
}

// Offsets and references take 1 to 8 bytes; writers pick the smallest that fits.
bool isIntegerSize(uint8_t size) {
  return size >= 1 && size <= 8;
}

class GraphCheck {
 public:
  GraphCheck(std::span<const uint8_t> bytes, const BinaryPlistLimits& limits)
      : bytes_(bytes), limits_(limits) {}

  std::optional<std::string> run();

 private:
  struct Container {
    uint64_t index = 0;
    uint64_t refsAt = 0;    // offset of the first reference
    uint64_t refCount = 0;  // all references (keys and values of a dictionary)
    uint64_t keyCount = 0;  // leading references that must name strings
    uint64_t next = 0;
    uint64_t expanded = 1;
  };
  enum State : uint8_t { kUnseen, kOpen, kDone };

  std::optional<uint64_t> objectOffset(uint64_t index) const;
  // Reads the container header of object `index`; a leaf gets no references.
  std::optional<std::string> describe(uint64_t index, Container& out) const;
  std::optional<std::string> visit(uint64_t index);
  void add(uint64_t& total, uint64_t amount) const {
    total = (total + amount < total) ? UINT64_MAX : total + amount;
  }

  std::span<const uint8_t> bytes_;
  BinaryPlistLimits limits_;
  uint8_t offsetSize_ = 0;
  uint8_t refSize_ = 0;
  uint64_t objectCount_ = 0;
  uint64_t tableAt_ = 0;
  std::vector<uint8_t> state_;
  std::vector<uint64_t> expanded_;
  std::vector<Container> stack_;
};

std::optional<uint64_t> GraphCheck::objectOffset(uint64_t index) const {
  uint64_t offset = readBigEndian(bytes_.data() + tableAt_ + index * offsetSize_, offsetSize_);
  if (offset < kHeaderSize || offset >= tableAt_) return std::nullopt;
  return offset;
}

std::optional<std::string> GraphCheck::describe(uint64_t index, Container& out) const {
  out = Container{};
  out.index = index;
  std::optional<uint64_t> offset = objectOffset(index);
  if (!offset) return "an object lies outside the data";
  uint8_t marker = bytes_[*offset];
  uint8_t type = marker >> 4;
  if (type != kArrayType && type != kSetType && type != kDictType) return std::nullopt;
  uint64_t count = marker & 0xF;
  uint64_t at = *offset + 1;
  if (count == 0xF) {
    if (at >= tableAt_ || bytes_[at] >> 4 != kIntType || (bytes_[at] & 0xF) > 3) {
      return "a container has a bad length";
    }
    unsigned size = 1u << (bytes_[at] & 0xF);
    if (at + 1 + size > tableAt_) return "a container has a bad length";
    count = readBigEndian(bytes_.data() + at + 1, size);
    at += 1 + size;
  }
  uint64_t room = (tableAt_ - at) / refSize_;
  uint64_t perEntry = type == kDictType ? 2 : 1;
  if (count > room / perEntry) return "a container runs past the end of the data";
  out.refsAt = at;
  out.refCount = count * perEntry;
  out.keyCount = type == kDictType ? count : 0;
  return std::nullopt;
}

std::optional<std::string> GraphCheck::visit(uint64_t index) {
  if (index >= objectCount_) return "a reference points past the last object";
  if (state_[index] == kOpen) return "objects refer to each other in a cycle";
  if (state_[index] == kDone) {
    if (!stack_.empty()) add(stack_.back().expanded, expanded_[index]);
    return std::nullopt;
  }
  if (stack_.size() >= limits_.maxDepth) return "containers are nested too deeply";
  Container c;
  if (auto why = describe(index, c)) return why;
  state_[index] = kOpen;
  stack_.push_back(c);
  return std::nullopt;
}

std::optional<std::string> GraphCheck::run() {
  if (bytes_.size() < kHeaderSize + kTrailerSize ||
      std::memcmp(bytes_.data(), "bplist00", 8) != 0) {
    return "the data is not a binary property list";
  }
  if (bytes_.size() > UINT32_MAX) return "the data is too large";
  const uint8_t* trailer = bytes_.data() + bytes_.size() - kTrailerSize;
  offsetSize_ = trailer[6];
  refSize_ = trailer[7];
  objectCount_ = readBigEndian(trailer + 8, 8);
  uint64_t root = readBigEndian(trailer + 16, 8);
  tableAt_ = readBigEndian(trailer + 24, 8);
  const uint64_t trailerAt = bytes_.size() - kTrailerSize;
  if (!isIntegerSize(offsetSize_) || !isIntegerSize(refSize_) || objectCount_ == 0 ||
      root >= objectCount_ || tableAt_ < kHeaderSize || tableAt_ >= trailerAt ||
      objectCount_ > (trailerAt - tableAt_) / offsetSize_) {
    return "the property list's trailer is damaged";
  }
  uint64_t limit = limits_.maxExpandedObjects;
  if (limit == 0) limit = 16 * static_cast<uint64_t>(bytes_.size());

  state_.assign(objectCount_, kUnseen);
  expanded_.assign(objectCount_, 0);
  if (auto why = visit(root)) return why;
  while (!stack_.empty()) {
    Container& top = stack_.back();
    if (top.next < top.refCount) {
      uint64_t ref = readBigEndian(bytes_.data() + top.refsAt + top.next * refSize_, refSize_);
      bool isKey = top.next < top.keyCount;
      ++top.next;
      if (isKey) {
        if (ref >= objectCount_) return "a reference points past the last object";
        std::optional<uint64_t> at = objectOffset(ref);
        uint8_t type = at ? bytes_[*at] >> 4 : 0;
        if (type != kAsciiStringType && type != kUnicodeStringType) {
          return "a dictionary key is not a string";
        }
      }
      if (auto why = visit(ref)) return why;
      continue;
    }
    uint64_t total = top.expanded;
    state_[top.index] = kDone;
    expanded_[top.index] = total;
    stack_.pop_back();
    if (total > limit) return "the property list expands beyond any plausible size";
    if (!stack_.empty()) add(stack_.back().expanded, total);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> checkBinaryPlist(std::span<const uint8_t> bytes,
                                            const BinaryPlistLimits& limits) {
  return GraphCheck(bytes, limits).run();
}

}  // namespace tw
