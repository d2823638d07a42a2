#include "support/temp_tree.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace tw::test {

namespace fs = std::filesystem;

TempTree::TempTree() {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/tarnwell-test-XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
  root_ = buf.data();
  chmod(root_.c_str(), 0755);
}

TempTree::~TempTree() {
  // Restore permissions a test may have taken away, then remove everything.
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(
           root_, fs::directory_options::skip_permission_denied, ec);
       it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_directory(ec) && !it->is_symlink(ec)) chmod(it->path().c_str(), 0755);
  }
  fs::remove_all(root_, ec);
}

std::string TempTree::path(const std::string& relative) const {
  return relative.empty() ? root_ : root_ + "/" + relative;
}

std::string TempTree::folder(const std::string& relative) {
  std::string full = path(relative);
  fs::create_directories(full);
  return full;
}

static void makeParent(const std::string& full) {
  fs::create_directories(fs::path(full).parent_path());
}

std::string TempTree::file(const std::string& relative, uint64_t bytes) {
  std::string full = path(relative);
  makeParent(full);
  int fd = open(full.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot create " + full);
  std::vector<char> block(1 << 16, 'x');
  for (uint64_t left = bytes; left > 0;) {
    auto n = static_cast<std::size_t>(std::min<uint64_t>(left, block.size()));
    if (write(fd, block.data(), n) != static_cast<ssize_t>(n)) throw std::runtime_error("write");
    left -= n;
  }
  fsync(fd);
  close(fd);
  return full;
}

std::string TempTree::hardLink(const std::string& existing, const std::string& relative) {
  std::string full = path(relative);
  makeParent(full);
  if (link(path(existing).c_str(), full.c_str()) != 0) throw std::runtime_error("link");
  return full;
}

std::string TempTree::symlink(const std::string& target, const std::string& relative) {
  std::string full = path(relative);
  makeParent(full);
  if (::symlink(target.c_str(), full.c_str()) != 0) throw std::runtime_error("symlink");
  return full;
}

std::string TempTree::fifo(const std::string& relative) {
  std::string full = path(relative);
  makeParent(full);
  if (mkfifo(full.c_str(), 0644) != 0) throw std::runtime_error("mkfifo");
  return full;
}

void TempTree::setModificationTime(const std::string& relative, double seconds) {
  timespec times[2];
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<time_t>(seconds);
  times[1].tv_nsec = static_cast<long>((seconds - static_cast<double>(times[1].tv_sec)) * 1e9);
  utimensat(AT_FDCWD, path(relative).c_str(), times, AT_SYMLINK_NOFOLLOW);
}

uint64_t allocatedSize(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return 0;
  return static_cast<uint64_t>(st.st_blocks) * 512;
}

int runUnprivileged(const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    if (setgroups(0, nullptr) != 0 || setresgid(65534, 65534, 65534) != 0 ||
        setresuid(65534, 65534, 65534) != 0)
      _exit(125);
    _exit(body());
  }
  int status = 0;
  if (waitpid(pid, &status, 0) < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool canMount() {
  if (geteuid() != 0) return false;
  TempTree probe;
  std::string target = probe.folder("mnt");
  std::string command = "mount -t tmpfs -o size=1m tarnwell-probe '" + target + "' 2>/dev/null";
  if (std::system(command.c_str()) != 0) return false;
  std::system(("umount '" + target + "' 2>/dev/null").c_str());
  return true;
}

}  // namespace tw::test
