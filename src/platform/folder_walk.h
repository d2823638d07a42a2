// Opening folders by full path without following symbolic links: every component is opened from
// "/" with O_NOFOLLOW | O_DIRECTORY, so a folder swapped for a link makes the open fail. Opened
// folders are kept in a small cache, so siblings and repeated parents cost one openat each.
#pragma once

#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace tw {

struct TrashCalls;

// Splitting: an absolute path without "." or ".." components into its parent folder and name
// (repeated and trailing "/" dropped); nothing for "/", relative paths and such components.
struct SplitPath {
  std::string path, parent, name;
};
std::optional<SplitPath> splitAbsolutePath(std::string_view path);

class FolderWalker {
 public:
  // Keeps at most `capacity` folders open (least recently used closed first).
  FolderWalker(const TrashCalls& calls, std::size_t capacity);
  ~FolderWalker();
  FolderWalker(const FolderWalker&) = delete;
  FolderWalker& operator=(const FolderWalker&) = delete;

  // The folder at `path` (as splitAbsolutePath gives it), opened as O_PATH; -1 with errno set.
  // The walker owns the descriptor, valid until the next open.
  int open(const std::string& path);

 private:
  const TrashCalls& calls_;
  std::size_t capacity_;
  std::list<std::pair<std::string, int>> recent_;  // most recently used first
  std::unordered_map<std::string, std::list<std::pair<std::string, int>>::iterator> index_;
};

}  // namespace tw
