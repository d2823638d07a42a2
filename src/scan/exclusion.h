// The user's exclusion settings, prepared once per walk: folders and files to leave out by path
// ("~" expanded) and by name pattern (case- and diacritic-insensitive wildcards, tried on the last
// path component and then on the path relative to the scan root).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/natural_order.h"

namespace tw {

class ExclusionRules {
 public:
  ExclusionRules(std::string rootPath, const std::vector<std::string>& excludedPaths,
                 const std::vector<std::string>& excludedFilePatterns);
  // Whether there is anything to test; without rules no path needs to be built.
  bool empty() const { return paths_.empty() && patterns_.empty(); }
  // `path` is already standardized.
  bool isExcluded(std::string_view path) const;

 private:
  std::string rootPath_;
  std::vector<std::string> paths_;
  std::vector<WildcardPattern> patterns_;
};

}  // namespace tw
