#include "scan/exclusion.h"

#include "platform/paths.h"

namespace tw {

namespace {
std::string_view trimWhitespace(std::string_view s) {
  const char* space = " \t\n\r\v\f";
  std::size_t first = s.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(space) - first + 1);
}
}  // namespace

ExclusionRules::ExclusionRules(std::string rootPath, const std::vector<std::string>& excludedPaths,
                               const std::vector<std::string>& excludedFilePatterns)
    : rootPath_(std::move(rootPath)) {
  const std::string home = homeDirectory();
  for (const std::string& p : excludedPaths) {
    if (p.empty()) continue;
    std::string standardized = standardizePath(expandTilde(p, home));
    if (!standardized.empty()) paths_.push_back(std::move(standardized));
  }
  for (const std::string& p : excludedFilePatterns) {
    std::string_view trimmed = trimWhitespace(p);
    if (!trimmed.empty()) patterns_.emplace_back(trimmed);
  }
}

bool ExclusionRules::isExcluded(std::string_view path) const {
  for (const std::string& excluded : paths_)
    if (isSameOrInside(path, excluded)) return true;
  if (patterns_.empty()) return false;
  std::string_view relative = path;
  if (path.starts_with(rootPath_)) {
    relative.remove_prefix(rootPath_.size());
    if (relative.starts_with('/')) relative.remove_prefix(1);
  }
  std::string_view last = displayNameForPath(path);
  for (const WildcardPattern& pattern : patterns_)
    if (pattern.matches(last) || pattern.matches(relative)) return true;
  return false;
}

}  // namespace tw
