#include "store/duplicate_model.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace tw {

namespace {

unsigned char foldAscii(unsigned char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

// SQLite's NOCASE collation: bytes compared with ASCII letters folded, then the shorter first.
int compareNoCase(std::string_view a, std::string_view b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    const unsigned char x = foldAscii(static_cast<unsigned char>(a[i]));
    const unsigned char y = foldAscii(static_cast<unsigned char>(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

}  // namespace

std::size_t DuplicateModel::KeyHash::operator()(const Key& key) const {
  uint64_t head;
  std::memcpy(&head, key.checksum.data(), sizeof head);
  return static_cast<std::size_t>(head ^ (key.size * 0x9e3779b97f4a7c15ull));
}

uint32_t DuplicateModel::addRow(int64_t id, uint64_t size, std::string_view path,
                                const Sha256Digest* checksum) {
  Row row{id, size, path, {}};
  if (checksum) {
    row.checksum = *checksum;
    row.hasChecksum = true;
  }
  rows_.push_back(row);
  return static_cast<uint32_t>(rows_.size() - 1);
}

void DuplicateModel::loadChecksum(uint32_t row, const Sha256Digest& checksum) {
  rows_[row].checksum = checksum;
  rows_[row].hasChecksum = true;
}

void DuplicateModel::finishLoading() {
  order_.resize(rows_.size());
  for (uint32_t i = 0; i < order_.size(); ++i) order_[i] = i;
  std::stable_sort(order_.begin(), order_.end(),
                   [this](uint32_t a, uint32_t b) { return rows_[a].size > rows_[b].size; });
  for (uint32_t i = 0; i < order_.size(); ++i) {
    const uint64_t size = rows_[order_[i]].size;
    if (classes_.empty() || classes_.back().size != size) {
      classes_.emplace_back();
      classes_.back().size = size;
      classes_.back().begin = i;
    }
    classes_.back().end = i + 1;
    rows_[order_[i]].sizeClass = static_cast<uint32_t>(classes_.size() - 1);
  }
  for (uint32_t row = 0; row < rows_.size(); ++row)
    if (rows_[row].hasChecksum) addToKey(row);
  dirty_ = true;
}

void DuplicateModel::setChecksum(uint32_t row, const Sha256Digest* checksum) {
  Row& r = rows_[row];
  if (r.hasChecksum && checksum && r.checksum == *checksum) return;
  if (r.hasChecksum) {
    removeFromKey(row);
    touch(row);  // listed under its old key
  }
  r.hasChecksum = checksum != nullptr;
  if (checksum) {
    r.checksum = *checksum;
    addToKey(row);
  }
}

void DuplicateModel::addToKey(uint32_t row) {
  const Row& r = rows_[row];
  KeyRows& key = keys_[Key{r.size, r.checksum}];
  if (++key.count == 1) {
    key.someRow = row;
    return;
  }
  if (key.count == 2) setMember(key.someRow, true);
  setMember(row, true);
}

void DuplicateModel::removeFromKey(uint32_t row) {
  const Row& r = rows_[row];
  auto found = keys_.find(Key{r.size, r.checksum});
  if (found == keys_.end()) return;
  KeyRows& key = found->second;
  setMember(row, false);
  if (--key.count == 0) {
    keys_.erase(found);
    return;
  }
  if (key.someRow == row) key.someRow = otherRowWithKey(row).value_or(row);
  if (key.count == 1) setMember(key.someRow, false);
}

std::optional<uint32_t> DuplicateModel::otherRowWithKey(uint32_t row) const {
  const Row& r = rows_[row];
  const SizeClass& sizeClass = classes_[r.sizeClass];
  for (uint32_t i = sizeClass.begin; i < sizeClass.end; ++i) {
    const Row& other = rows_[order_[i]];
    if (order_[i] != row && other.hasChecksum && other.checksum == r.checksum) return order_[i];
  }
  return std::nullopt;
}

void DuplicateModel::setMember(uint32_t row, bool member) {
  Row& r = rows_[row];
  member = member && r.size > 0;
  if (r.member == member) return;
  SizeClass& sizeClass = classes_[r.sizeClass];
  if (!sizeClass.sorted) sortClass(sizeClass);
  r.member = member;
  uint64_t& word = sizeClass.memberBits[r.position / 64];
  const uint64_t bit = uint64_t{1} << (r.position % 64);
  word = member ? (word | bit) : (word & ~bit);
  sizeClass.members += member ? 1 : -1;
  touch(row);
}

void DuplicateModel::sortClass(SizeClass& sizeClass) {
  std::sort(order_.begin() + sizeClass.begin, order_.begin() + sizeClass.end,
            [this](uint32_t a, uint32_t b) {
              const int order = compareNoCase(rows_[a].path, rows_[b].path);
              return order != 0 ? order < 0 : rows_[a].id < rows_[b].id;
            });
  for (uint32_t i = sizeClass.begin; i < sizeClass.end; ++i)
    rows_[order_[i]].position = i - sizeClass.begin;
  sizeClass.memberBits.assign((sizeClass.end - sizeClass.begin + 63) / 64, 0);
  sizeClass.sorted = true;
}

void DuplicateModel::touch(uint32_t row) {
  if (dirty_) return;
  const Row& r = rows_[row];
  if (!r.member && !classes_[r.sizeClass].sorted) return;
  dirty_ = !boundary_ || std::pair(r.sizeClass, r.position) <= *boundary_;
}

std::vector<uint32_t> DuplicateModel::firstMembers(std::size_t limit) {
  std::vector<uint32_t> listed;
  boundary_.reset();
  for (uint32_t c = 0; c < classes_.size() && listed.size() < limit; ++c) {
    const SizeClass& sizeClass = classes_[c];
    if (sizeClass.members == 0) continue;
    for (std::size_t w = 0; w < sizeClass.memberBits.size() && listed.size() < limit; ++w) {
      for (uint64_t bits = sizeClass.memberBits[w]; bits && listed.size() < limit;
           bits &= bits - 1) {
        const auto position = static_cast<uint32_t>(w * 64 + std::countr_zero(bits));
        listed.push_back(order_[sizeClass.begin + position]);
        if (listed.size() == limit) boundary_ = std::pair(c, position);
      }
    }
  }
  dirty_ = false;
  return listed;
}

}  // namespace tw
