#include "platform/file_url.h"

namespace tw {

namespace {

constexpr std::string_view kFileScheme = "file://";

// Characters a URL path carries unescaped: unreserved ones, sub-delimiters, ":", "@" and "/".
bool isPathSafe(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':
    case ':':
    case '@':
    case '/':
      return true;
    default:
      return false;
  }
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != prefix[i]) return false;
  }
  return true;
}

}  // namespace

std::string fileURLForPath(std::string_view path, bool directory) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string url(kFileScheme);
  url.reserve(kFileScheme.size() + path.size() + 2);
  if (path.empty() || path.front() != '/') url.push_back('/');
  for (char ch : path) {
    auto c = static_cast<unsigned char>(ch);
    if (isPathSafe(c)) {
      url.push_back(ch);
    } else {
      url.push_back('%');
      url.push_back(kHex[c >> 4]);
      url.push_back(kHex[c & 0xF]);
    }
  }
  if (directory && url.back() != '/') url.push_back('/');
  return url;
}

std::string percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      int hi = hexValue(text[i + 1]);
      int lo = hexValue(text[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi << 4 | lo));
        i += 2;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

bool hasFileScheme(std::string_view url) {
  return startsWithNoCase(url, "file:");
}

std::optional<std::string> pathForFileURL(std::string_view url) {
  if (!hasFileScheme(url)) return std::nullopt;
  std::string_view rest = url.substr(5);
  if (rest.starts_with("//")) {
    // Only a local authority: "file:///p" or "file://localhost/p".
    rest.remove_prefix(2);
    std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    std::string_view host = rest.substr(0, slash);
    if (!host.empty() && !(host.size() == 9 && startsWithNoCase(host, "localhost"))) {
      return std::nullopt;
    }
    rest.remove_prefix(slash);
  }
  if (rest.empty() || rest.front() != '/') return std::nullopt;
  if (std::size_t cut = rest.find_first_of("?#"); cut != std::string_view::npos) {
    rest = rest.substr(0, cut);
  }
  std::string path = percentDecode(rest);
  if (path.find('\0') != std::string::npos) return std::nullopt;  // no file system allows it
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace tw
