// The path safety rule: what may never be moved to the Trash. Paths are compared only after links
// are resolved, so a link inside the scan cannot lead the Trash into a system folder.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "cleanup/cleanup.h"
#include "platform/paths.h"
#include "platform/protected_locations.h"
#include "platform/real_path_cache.h"

namespace tw {

namespace {

// The path with every link resolved, standardized. An item that is gone, or a dangling link, keeps
// its own name below its resolved folder; without that folder the path is only standardized.
std::string resolvedPath(std::string_view path, RealPathCache& folders) {
  if (path.empty()) return {};
  const std::string standardized = standardizePath(path);
  if (std::optional<std::string> resolved = folders.resolve(standardized)) return *resolved;
  const std::string folder = parentPath(standardized);
  if (!folder.empty() && folder != standardized) {
    if (std::optional<std::string> resolvedFolder = folders.resolve(folder))
      return appendPathComponent(*resolvedFolder, displayNameForPath(standardized));
  }
  return standardized;
}

std::string resolvedPath(std::string_view path) {
  RealPathCache folders;
  return resolvedPath(path, folders);
}

// The home folders as written and as resolved: a rule may name a home reached through a link.
std::vector<std::string> bothForms(const std::string& path) {
  if (path.empty()) return {};
  return {standardizePath(path), resolvedPath(path)};
}

bool isProtectedResolvedPath(std::string_view resolved,
                             const std::vector<std::string>& protectedHomes) {
  if (isProtectedSystemPath(resolved)) return true;
  for (const std::string& home : protectedHomes)
    if (isSameOrInside(resolved, home)) return true;
  return false;
}

}  // namespace

SafetyRule SafetyRule::forThisProcess() {
  SafetyRule rule;
  rule.homeFolder = homeDirectory();
  // Started as root through pkexec, the home is root's own; the caller's home holds the files of
  // the user who asked, and root is not to clean them out.
  rule.protectedHomes = protectedHomeFolders();
  return rule;
}

SafetyCheck::SafetyCheck(std::string_view scanRootPath, const SafetyRule& rule)
    : root_(resolvedPath(scanRootPath)), home_(bothForms(rule.homeFolder)) {
  for (const std::string& home : rule.protectedHomes)
    for (std::string& form : bothForms(home)) protectedHomes_.push_back(std::move(form));
}

bool SafetyCheck::isSafe(std::string_view path) const {
  RealPathCache folders;
  return isSafe(path, folders);
}

bool SafetyCheck::isSafe(std::string_view path, RealPathCache& folders) const {
  const std::string p = resolvedPath(path, folders);
  if (p.empty()) return false;
  if (p == "/") return false;
  if (p == root_) return false;
  if (std::find(home_.begin(), home_.end(), p) != home_.end()) return false;
  if (!(root_ == "/" || isInside(p, root_))) return false;
  if (isProtectedResolvedPath(p, protectedHomes_)) return false;
  struct stat st {};
  return ::lstat(p.c_str(), &st) == 0;
}

bool isProtectedPath(std::string_view resolved, const SafetyRule& rule) {
  std::vector<std::string> homes;
  for (const std::string& home : rule.protectedHomes)
    for (std::string& form : bothForms(home)) homes.push_back(std::move(form));
  return isProtectedResolvedPath(resolved, homes);
}

bool isSafeDeletionPath(std::string_view path, std::string_view scanRootPath,
                        const SafetyRule& rule) {
  return SafetyCheck(scanRootPath, rule).isSafe(path);
}

}  // namespace tw
