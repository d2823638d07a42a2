#include "platform/protected_locations.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "platform/paths.h"

namespace tw {

bool isProtectedSystemPath(std::string_view path) {
  static constexpr std::array<std::string_view, 22> kLocations = {
      "/System", "/Library", "/Applications", "/usr",   "/bin",   "/sbin",   "/private", "/boot",
      "/dev",    "/etc",     "/lib",          "/lib32", "/lib64", "/libx32", "/opt",     "/proc",
      "/root",   "/run",     "/snap",         "/srv",   "/sys",   "/var"};
  if (isInside(path, "/run/media")) return false;
  for (std::string_view location : kLocations)
    if (isSameOrInside(path, location)) return true;
  return false;
}

std::vector<std::string> protectedHomeFolders() {
  const char* caller = std::getenv("PKEXEC_UID");
  if (geteuid() != 0 || !caller || !*caller) return {};
  char* end = nullptr;
  errno = 0;
  const unsigned long uid = std::strtoul(caller, &end, 10);
  if (errno || *end) return {};
  const passwd* user = getpwuid(static_cast<uid_t>(uid));
  if (!user || !user->pw_dir || !*user->pw_dir) return {};
  return {standardizePath(user->pw_dir)};
}

}  // namespace tw
