// The single-instance lock: an exclusive, non-blocking flock on "Instance.lock" in the library
// folder. Whoever holds it is the one running copy; the kernel drops it when that copy exits or
// is killed, so a lock file left behind never blocks a later start.
#pragma once

#include <optional>
#include <string>

#include "platform/error.h"

namespace tw {

// The lock file's name in the library folder (part of the folder's on-disk layout).
inline constexpr const char* kInstanceLockFileName = "Instance.lock";

class InstanceLock {
 public:
  InstanceLock() = default;
  ~InstanceLock() { release(); }
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

  // Opens (creating it 0600) and locks the file at `path`. Any failure, another holder included,
  // leaves the lock not held; the error says why.
  std::optional<Error> acquire(const std::string& path);
  // Unlocks and closes; the file stays on disk.
  void release();

  bool isHeld() const { return fd_ >= 0; }
  int fileDescriptor() const { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace tw
