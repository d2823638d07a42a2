#include "support/temp_tree.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tw::test {

namespace fs = std::filesystem;

namespace {

// Whether user nobody can reach `folder`: every folder on the way is searchable by others.
bool everyoneCanEnter(const fs::path& folder) {
  struct stat st {};
  if (stat(folder.c_str(), &st) != 0 || !(st.st_mode & S_IXOTH)) return false;
  return folder == folder.root_path() || everyoneCanEnter(folder.parent_path());
}

std::string withParent(const std::string& full) {
  fs::create_directories(fs::path(full).parent_path());
  return full;
}

void check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error(what + ": " + std::strerror(errno));
}

bool becomeNobody() {
  return setgroups(0, nullptr) == 0 && setresgid(65534, 65534, 65534) == 0 &&
         setresuid(65534, 65534, 65534) == 0;
}

}  // namespace

TempTree::TempTree() {
  // Tests hand their trees to user nobody, so $TMPDIR counts only when nobody can reach it (not
  // inside a 0700 home).
  const char* tmp = std::getenv("TMPDIR");
  const bool useTmpdir = tmp && *tmp == '/' && everyoneCanEnter(tmp);
  std::string pattern = std::string(useTmpdir ? tmp : "/tmp") + "/tarnwell-test-XXXXXX";
  check(mkdtemp(pattern.data()) != nullptr, "mkdtemp");
  root_ = pattern;
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
  fs::create_directories(path(relative));
  return path(relative);
}

std::string TempTree::file(const std::string& relative, uint64_t bytes) {
  const std::string full = withParent(path(relative));
  const int fd = open(full.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const std::string data(bytes, 'x');
  check(fd >= 0 && write(fd, data.data(), data.size()) == static_cast<ssize_t>(data.size()),
        "write " + full);
  fsync(fd);  // so the allocated size is settled
  close(fd);
  return full;
}

std::string TempTree::hardLink(const std::string& existing, const std::string& relative) {
  check(link(path(existing).c_str(), withParent(path(relative)).c_str()) == 0, "link");
  return path(relative);
}

std::string TempTree::symlink(const std::string& target, const std::string& relative) {
  check(::symlink(target.c_str(), withParent(path(relative)).c_str()) == 0, "symlink");
  return path(relative);
}

std::string TempTree::fifo(const std::string& relative) {
  check(mkfifo(withParent(path(relative)).c_str(), 0644) == 0, "mkfifo");
  return path(relative);
}

void TempTree::setModificationTime(const std::string& relative, double seconds) {
  const auto whole = static_cast<time_t>(seconds);
  const timespec times[2] = {
      {0, UTIME_OMIT}, {whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)}};
  utimensat(AT_FDCWD, path(relative).c_str(), times, AT_SYMLINK_NOFOLLOW);
}

uint64_t allocatedSize(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_blocks) * 512 : 0;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream(withParent(path), std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> listFolder(const std::string& folder, bool sorted) {
  std::vector<std::string> names;
  std::error_code ec;
  // The directory iterator reads entries in the file system's own order.
  for (const auto& entry : fs::directory_iterator(folder, ec))
    names.push_back(entry.path().filename().string());
  if (sorted) std::sort(names.begin(), names.end());
  return names;
}

int runUnprivileged(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(becomeNobody() ? body() : 125);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string runUnprivilegedReporting(const std::function<std::string()>& body) {
  constexpr std::size_t kRoom = 16384;  // shared with the child, which writes its report there
  void* shared = mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return "mmap failed";
  char* report = static_cast<char*>(shared);
  const int status = runUnprivileged([&] {
    alarm(20);  // a hung body ends the child, and so fails the test
    const std::string text = body();
    std::strncpy(report, text.c_str(), kRoom - 1);
    return text.empty() ? 0 : 1;
  });
  std::string out = report;
  munmap(shared, kRoom);
  if (status == 125) return "could not become user nobody";
  if (status != 0 && out.empty()) return "child ended with status " + std::to_string(status);
  return out;
}

ProcessRun runProcess(std::vector<std::string> args, bool unprivileged) {
  TempTree outputs;
  if (unprivileged) {
    // The build tree may sit in a home nobody cannot enter: run a copy from the open temp tree.
    const std::string copy = outputs.path(fs::path(args[0]).filename().string());
    std::error_code ec;
    fs::copy_file(args[0], copy, ec);
    args[0] = copy;
    args.insert(args.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  }
  std::string command = "timeout -s KILL 20";
  auto quoted = [](std::string text) {
    for (std::size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 4)
      text.replace(at, 1, "'\\''");
    return " '" + text + "'";
  };
  for (const std::string& arg : args) command += quoted(arg);
  command += " >" + quoted(outputs.path("out")) + " 2>" + quoted(outputs.path("err"));
  const int status = std::system(command.c_str());
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return {code == 137  ? -2
          : code > 128 ? -1
                       : code,
          readFile(outputs.path("out")), readFile(outputs.path("err"))};
}

bool canMount() {
  static const bool allowed = [] {
    if (geteuid() != 0) return false;
    TempTree probe;
    return MountGuard().mount("tarnwell-probe", probe.folder("mnt"), "tmpfs", 0, "size=1m");
  }();
  return allowed;
}

MountGuard::~MountGuard() {
  for (auto it = targets_.rbegin(); it != targets_.rend(); ++it)
    if (umount2(it->c_str(), 0) != 0) umount2(it->c_str(), MNT_DETACH);
}

bool MountGuard::mount(const char* source, const std::string& target, const char* type,
                       unsigned long flags, const char* data) {
  if (::mount(source, target.c_str(), type, flags, data) != 0) return false;
  targets_.push_back(target);
  return true;
}

}  // namespace tw::test
