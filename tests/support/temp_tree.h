// Real temporary folder trees for file-system tests: made fresh per test, removed afterwards.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

namespace tw::test {

class TempTree {
 public:
  TempTree();  // a new, empty folder below $TMPDIR (or /tmp), readable by everyone
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

// Runs `body` in a child process as user and group 65534 (nobody), which cannot read folders it
// was not given; returns the child's exit status (or -1 when it could not run).
int runUnprivileged(const std::function<int()>& body);

// Whether this process may mount file systems (root with CAP_SYS_ADMIN in a mount-capable place).
bool canMount();

}  // namespace tw::test
