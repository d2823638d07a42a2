#include "platform/trash_info.h"

#include <unordered_set>

namespace tw {

namespace {

bool isUnreservedOrSlash(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~' || c == '/';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Splits `text` into lines without their "\n" (a final "\r" is dropped too).
template <typename Fn>
void forEachLine(std::string_view text, Fn&& fn) {
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t end = text.find('\n', at);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(at, end - at);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    fn(line);
    at = end + 1;
  }
}

}  // namespace

std::string percentEncodeTrashPath(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(path.size() + path.size() / 4);
  for (const char ch : path) {
    const auto c = static_cast<unsigned char>(ch);
    if (isUnreservedOrSlash(c)) {
      out.push_back(ch);
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

std::optional<std::string> percentDecodeTrashPath(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexValue(text[i + 1]), low = hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return out;
}

std::string trashDeletionDate(std::time_t when) {
  std::tm local{};
  localtime_r(&when, &local);
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
  return text;
}

std::string trashInfoText(std::string_view path, std::string_view deletionDate) {
  std::string text = "[Trash Info]\nPath=";
  text += percentEncodeTrashPath(path);
  text += "\nDeletionDate=";
  text += deletionDate;
  text += '\n';
  return text;
}

std::optional<std::string> trashInfoPath(std::string_view text) {
  bool inGroup = false;
  std::optional<std::string> path;
  forEachLine(text, [&](std::string_view line) {
    if (line.starts_with('[')) {
      inGroup = line == "[Trash Info]";
    } else if (inGroup && !path && line.starts_with("Path=")) {
      path = percentDecodeTrashPath(line.substr(5));
    }
  });
  return path;
}

std::string updatedDirectorySizes(std::string_view existing,
                                  const std::vector<TrashedFolderSize>& added,
                                  const std::vector<std::string>& removed) {
  std::unordered_set<std::string> replaced(removed.begin(), removed.end());
  for (const TrashedFolderSize& entry : added) replaced.insert(entry.name);
  std::string out;
  out.reserve(existing.size() + added.size() * 48);
  forEachLine(existing, [&](std::string_view line) {
    const std::size_t first = line.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    if (second == std::string_view::npos) return;
    const std::optional<std::string> name = percentDecodeTrashPath(line.substr(second + 1));
    if (!name || name->empty() || replaced.contains(*name)) return;
    out.append(line);
    out.push_back('\n');
  });
  for (const TrashedFolderSize& entry : added) {
    out += std::to_string(entry.bytes) + ' ' + std::to_string(entry.infoModified) + ' ' +
           percentEncodeTrashPath(entry.name) + '\n';
  }
  return out;
}

}  // namespace tw
