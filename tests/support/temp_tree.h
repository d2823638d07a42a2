// Real temporary folder trees for file-system tests: made fresh per test, removed afterwards; with
// the file, process, mount and time-limit helpers the tests on them share.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tw::test {

class TempTree {
 public:
  TempTree();  // a new, empty folder below $TMPDIR (or /tmp), reachable by everyone
  ~TempTree();
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  const std::string& root() const { return root_; }
  std::string path(const std::string& relative) const;

  // Each creates missing parent folders and returns the full path.
  std::string folder(const std::string& relative);
  // A file whose allocated size is `bytes` rounded up to blocks (its contents are written).
  std::string file(const std::string& relative, uint64_t bytes = 0);
  std::string hardLink(const std::string& existing, const std::string& relative);
  std::string symlink(const std::string& target, const std::string& relative);
  std::string fifo(const std::string& relative);
  // Sets the modification time, in seconds since 1970.
  void setModificationTime(const std::string& relative, double seconds);

 private:
  std::string root_;
};

// Allocated size of a file as the scanner measures it (st_blocks × 512).
uint64_t allocatedSize(const std::string& path);

// A file's bytes ("" when it cannot be read); writing makes missing folders, replaces the file
// and does not sync it.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, std::string_view bytes);
// The names in a folder without "." and "..", sorted, or in the order the file system lists them.
std::vector<std::string> listFolder(const std::string& folder, bool sorted = true);

// Runs `body` in a child process as user and group 65534 (nobody), which cannot read folders it
// was not given; returns the child's exit status (or -1 when it could not run).
int runUnprivileged(const std::function<int()>& body);
// The same for a body returning the text of what went wrong ("" when all is well); a child
// running longer than 20 s is ended, and the text says so.
std::string runUnprivilegedReporting(const std::function<std::string()>& body);

// A program run to its end: exit status (-1 crashed, -2 hung and stopped after 20 s) and what it
// wrote to standard output and error. Run as nobody (through setpriv), the program is a copy in a
// temporary folder everyone can reach.
struct ProcessRun {
  int status = -1;
  std::string out, err;
};
ProcessRun runProcess(std::vector<std::string> argv, bool unprivileged = false);

// Whether this process may mount file systems (root with CAP_SYS_ADMIN in a mount-capable place);
// asked once.
bool canMount();

// Unmounts what it mounted when the test ends, whatever happened.
class MountGuard {
 public:
  ~MountGuard();
  bool mount(const char* source, const std::string& target, const char* type, unsigned long flags,
             const char* data);

 private:
  std::vector<std::string> targets_;
};

}  // namespace tw::test
