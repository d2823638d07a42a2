// One line of JSON, keys in the order added. Text that is not UTF-8 has its bad bytes replaced by
// U+FFFD, since JSON readers reject them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tw {

class JsonLine {
 public:
  void add(std::string_view key, std::string_view value);
  void add(std::string_view key, uint64_t value);
  void add(std::string_view key, double value);
  std::string text() const { return body_ + "}"; }

 private:
  void addKey(std::string_view key);
  std::string body_ = "{";
};

// `text` as a quoted JSON string.
std::string jsonQuoted(std::string_view text);

}  // namespace tw
