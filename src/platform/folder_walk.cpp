#include "platform/folder_walk.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/trash.h"

namespace tw {

std::optional<SplitPath> splitAbsolutePath(std::string_view path) {
  if (path.empty() || path.front() != '/') return std::nullopt;
  SplitPath out;
  std::size_t at = 0;
  while (at < path.size()) {
    std::size_t end = path.find('/', at);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view component = path.substr(at, end - at);
    at = end + 1;
    if (component.empty()) continue;
    if (component == "." || component == "..") return std::nullopt;
    out.parent = out.path.empty() ? "/" : out.path;
    out.path += '/';
    out.path += component;
    out.name = component;
  }
  if (out.name.empty()) return std::nullopt;
  return out;
}

FolderWalker::FolderWalker(const TrashCalls& calls, std::size_t capacity)
    : calls_(calls), capacity_(capacity < 2 ? 2 : capacity) {}

FolderWalker::~FolderWalker() {
  for (const auto& [path, fd] : recent_) close(fd);
}

int FolderWalker::open(const std::string& path) {
  if (auto known = index_.find(path); known != index_.end()) {
    recent_.splice(recent_.begin(), recent_, known->second);
    return known->second->second;
  }
  int fd = -1;
  if (path == "/") {
    fd = calls_.openat(AT_FDCWD, "/", O_PATH | O_DIRECTORY | O_CLOEXEC, 0);
  } else {
    const std::optional<SplitPath> split = splitAbsolutePath(path);
    if (!split || split->path != path) {
      errno = EINVAL;
      return -1;
    }
    const int parent = open(split->parent);
    if (parent < 0) return -1;
    fd = calls_.openat(parent, split->name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC,
                       0);
  }
  if (fd < 0) return -1;
  recent_.emplace_front(path, fd);
  index_.emplace(path, recent_.begin());
  while (recent_.size() > capacity_) {
    index_.erase(recent_.back().first);
    close(recent_.back().second);
    recent_.pop_back();
  }
  return fd;
}

}  // namespace tw
