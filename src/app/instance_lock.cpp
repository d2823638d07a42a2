#include "app/instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tw {

std::optional<Error> InstanceLock::acquire(const std::string& path) {
  release();
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return lastPosixError();
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    Error error = lastPosixError();
    ::close(fd);
    return error;
  }
  fd_ = fd;
  return std::nullopt;
}

void InstanceLock::release() {
  if (fd_ < 0) return;
  ::flock(fd_, LOCK_UN);
  ::close(fd_);
  fd_ = -1;
}

}  // namespace tw
