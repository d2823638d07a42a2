// Resolving many paths' links at once: what realpath(3) answers for each path, with the folders
// already resolved for an earlier path reused, so paths sharing folders cost about one lstat each
// instead of one per component.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tw {

class RealPathCache {
 public:
  // realpath(3) of `path` (absolute and standardized, as standardizePath gives it); nothing where
  // realpath fails. Folders are remembered for the life of the cache: use one for one pass.
  std::optional<std::string> resolve(std::string_view path);

 private:
  // The resolved form of standardized folder `folder`, remembered.
  const std::optional<std::string>& folder(std::string_view folder);

  std::unordered_map<std::string, std::optional<std::string>> folders_;
};

}  // namespace tw
