#include "platform/real_path_cache.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>

#include "platform/paths.h"

namespace tw {

namespace {

std::optional<std::string> systemRealPath(const std::string& path) {
  char resolved[PATH_MAX];
  if (::realpath(path.c_str(), resolved) == nullptr) return std::nullopt;
  return std::string(resolved);
}

}  // namespace

std::optional<std::string> RealPathCache::resolve(std::string_view path) {
  if (path.empty() || path.front() != '/') return systemRealPath(std::string(path));
  if (path == "/") return std::string("/");
  const std::string_view name = displayNameForPath(path);
  if (name.empty() || name == "." || name == "..") return systemRealPath(std::string(path));
  const std::optional<std::string>& parent = folder(path.substr(0, path.size() - name.size()));
  if (!parent) return std::nullopt;
  std::string joined = appendPathComponent(*parent, name);
  struct stat st {};
  if (::lstat(joined.c_str(), &st) != 0) return std::nullopt;
  // A link is followed however far it leads; anything else is already its own real path.
  if (S_ISLNK(st.st_mode)) return systemRealPath(joined);
  return joined;
}

const std::optional<std::string>& RealPathCache::folder(std::string_view folder) {
  // `folder` ends in "/" here; the root stays "/", others drop it.
  if (folder.size() > 1 && folder.back() == '/') folder.remove_suffix(1);
  const std::string key(folder);
  if (auto known = folders_.find(key); known != folders_.end()) return known->second;
  std::optional<std::string> resolved = resolve(key);
  // realpath fails with ENOTDIR on a path below something that is not a folder.
  if (resolved && *resolved != "/") {
    struct stat st {};
    if (::stat(resolved->c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) resolved.reset();
  }
  return folders_.emplace(key, std::move(resolved)).first->second;
}

}  // namespace tw
