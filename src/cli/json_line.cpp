#include "cli/json_line.h"

#include <cstdio>

namespace tw {

namespace {
// Length of the valid UTF-8 sequence at `i`, or 0.
std::size_t validSequence(std::string_view s, std::size_t i) {
  auto b = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  unsigned char c = b(i);
  std::size_t len = c < 0x80             ? 1
                    : (c & 0xE0) == 0xC0 ? 2
                    : (c & 0xF0) == 0xE0 ? 3
                    : (c & 0xF8) == 0xF0 ? 4
                                         : 0;
  if (len == 0 || i + len > s.size()) return 0;
  for (std::size_t k = 1; k < len; ++k)
    if ((b(i + k) & 0xC0) != 0x80) return 0;
  if (len == 2 && c < 0xC2) return 0;
  return len;
}
}  // namespace

std::string jsonQuoted(std::string_view text) {
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size();) {
    std::size_t len = validSequence(text, i);
    if (len == 0) {
      out += "\xEF\xBF\xBD";
      ++i;
      continue;
    }
    char c = text[i];
    if (len == 1) {
      switch (c) {
        case '"':
          out += "\\\"";
          break;
        case '\\':
          out += "\\\\";
          break;
        case '/':
          out += "\\/";
          break;
        case '\n':
          out += "\\n";
          break;
        case '\r':
          out += "\\r";
          break;
        case '\t':
          out += "\\t";
          break;
        default:
          if (static_cast<unsigned char>(c) < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
          } else {
            out += c;
          }
      }
    } else {
      out.append(text.substr(i, len));
    }
    i += len;
  }
  return out + "\"";
}

void JsonLine::addKey(std::string_view key) {
  if (body_.size() > 1) body_ += ",";
  body_ += jsonQuoted(key) + ":";
}

void JsonLine::add(std::string_view key, std::string_view value) {
  addKey(key);
  body_ += jsonQuoted(value);
}

void JsonLine::add(std::string_view key, uint64_t value) {
  addKey(key);
  body_ += std::to_string(value);
}

void JsonLine::add(std::string_view key, double value) {
  addKey(key);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.6f", value);
  body_ += buf;
}

}  // namespace tw
