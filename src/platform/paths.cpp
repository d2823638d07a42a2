#include "platform/paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace tw {

std::string standardizePath(std::string_view path) {
  if (path.empty()) return {};
  const bool absolute = path.front() == '/';
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    std::string_view part = path.substr(start, end - start);
    if (part.empty() || part == ".") {
      // skip
    } else if (part == "..") {
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
      } else if (!absolute) {
        parts.push_back(part);
      }
    } else {
      parts.push_back(part);
    }
    start = end + 1;
  }
  std::string out;
  if (absolute) out.push_back('/');
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i) out.push_back('/');
    out.append(parts[i]);
  }
  if (out.empty()) return std::string(1, '.');
  return out;
}

std::string expandTilde(std::string_view path, std::string_view home) {
  if (path == "~") return std::string(home);
  if (path.starts_with("~/")) return appendPathComponent(home, path.substr(2));
  return std::string(path);
}

std::string standardizeUserPath(std::string_view path) {
  if (path.empty()) return {};
  return standardizePath(expandTilde(path, homeDirectory()));
}

std::string_view displayNameForPath(std::string_view path) {
  std::string_view trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.remove_suffix(1);
  std::size_t slash = trimmed.rfind('/');
  std::string_view last = slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1);
  return last.empty() ? path : last;
}

std::string parentPath(std::string_view path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

bool isInside(std::string_view path, std::string_view folder) {
  if (folder.empty()) return false;
  if (folder == "/") return path.size() > 1 && path.front() == '/';
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

bool isSameOrInside(std::string_view path, std::string_view folder) {
  return (!folder.empty() && path == folder) || isInside(path, folder);
}

std::string appendPathComponent(std::string_view folder, std::string_view name) {
  std::string out(folder);
  if (out.empty() || out.back() != '/') out.push_back('/');
  out.append(name);
  return out;
}

std::string fileExtension(std::string_view name) {
  std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return asciiLowercase(name.substr(dot + 1));
}

std::string asciiLowercase(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

std::string homeDirectory() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
}

}  // namespace tw
