// The duplicate groups of one subtree kept in memory while a search stores checksums batch after
// batch, so the first members in listing order (largest first, then by path ignoring ASCII case)
// come without a subtree query per batch. Rows are grouped by size once; a size's rows are
// sorted by path only when the first of them becomes a member, and each size keeps a bitmap of
// its members in that order. The listing is rebuilt only when a change reaches its range.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "store/batch_hasher.h"

namespace tw {

class DuplicateModel {
 public:
  // Loading: every row of the subtree that holds a checksum or may be given one. The path's bytes
  // must outlive the model.
  uint32_t addRow(int64_t id, uint64_t size, std::string_view path,
                  const Sha256Digest* checksum = nullptr);
  void loadChecksum(uint32_t row, const Sha256Digest& checksum);
  void finishLoading();

  // A row's checksum changed (stored, or cleared when null).
  void setChecksum(uint32_t row, const Sha256Digest* checksum);

  // Whether a change since the last listing may have altered the first members.
  bool listingMayHaveChanged() const { return dirty_; }
  // The first `limit` members (rows in a group of two or more, size above 0) in listing order.
  std::vector<uint32_t> firstMembers(std::size_t limit);

  int64_t id(uint32_t row) const { return rows_[row].id; }
  uint64_t size(uint32_t row) const { return rows_[row].size; }
  const Sha256Digest& checksum(uint32_t row) const { return rows_[row].checksum; }

 private:
  struct Row {
    int64_t id;
    uint64_t size;
    std::string_view path;
    Sha256Digest checksum;
    uint32_t sizeClass = 0;
    uint32_t position = 0;  // within its size class once that is sorted
    bool hasChecksum = false;
    bool member = false;
  };
  struct SizeClass {
    uint64_t size = 0;
    uint32_t begin = 0, end = 0;  // its rows in order_
    uint32_t members = 0;
    bool sorted = false;
    std::vector<uint64_t> memberBits;  // by position
  };
  struct Key {
    uint64_t size;
    Sha256Digest checksum;
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    std::size_t operator()(const Key& key) const;
  };
  struct KeyRows {
    uint32_t count = 0;
    uint32_t someRow = 0;  // one row holding the key
  };

  void addToKey(uint32_t row);
  void removeFromKey(uint32_t row);
  void setMember(uint32_t row, bool member);
  void sortClass(SizeClass& sizeClass);
  // Another row of `row`'s size class holding the same key.
  std::optional<uint32_t> otherRowWithKey(uint32_t row) const;
  void touch(uint32_t row);

  std::vector<Row> rows_;
  std::vector<SizeClass> classes_;  // largest size first
  std::vector<uint32_t> order_;     // rows by size class
  std::unordered_map<Key, KeyRows, KeyHash> keys_;
  bool dirty_ = true;
  // The last member listed when the last listing was full: changes after it cannot reach it.
  std::optional<std::pair<uint32_t, uint32_t>> boundary_;
};

}  // namespace tw
