// The scan library's test world: a stand-in for the GUI thread, a private library folder and
// preferences per test, one seam for file faults, and small scans written straight to disk.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "scan/scan_node.h"
#include "services/scan_library.h"
#include "support/temp_tree.h"

namespace tw::test {

// Callbacks posted to the "GUI thread" wait here until the test runs them on its own thread.
class MainQueue {
 public:
  Executor executor() const;
  // Runs posted callbacks until `done` answers true; false when `seconds` pass first.
  bool runUntil(const std::function<bool()>& done, double seconds = 60);
  void drain(double seconds = 0.2) {
    runUntil([] { return false; }, seconds);
  }

 private:
  struct Inner {
    std::mutex mutex;
    std::condition_variable posted;
    std::deque<std::function<void()>> queue;
  };
  std::shared_ptr<Inner> inner_ = std::make_shared<Inner>();
};

// File calls for files whose path contains `target`: a write or a rename fails with the errno
// given, or the `stopAtWrite`th write is torn, `notifyFd` hears of it and the process waits to be
// killed. Everything else goes to the system.
struct FaultyCalls {
  static inline std::string target;
  static inline int failWrite = 0, failRename = 0, stopAtWrite = 0, notifyFd = -1;
  static const FileSystemCalls* calls();
};

class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A library on the real thread pool whose callbacks go through `main`, logging to `logged`.
  std::unique_ptr<ScanLibrary> makeLibrary(ScanLibrary::Options options = {});
  SaveOutcome acceptAndWait(ScanLibrary& library, const ScanNodeRef& root);
  RestoreOutcome restoreAndWait(ScanLibrary& library);

  std::string libraryFolder() const { return data.path("Tarnwell"); }
  std::string historyFolder() const { return data.path("Tarnwell/History"); }
  std::string cacheFile() const { return data.path("Tarnwell/LastScan.sqlite"); }

  TempTree data;
  MainQueue main;
  std::vector<std::string> logged;
  std::mutex loggedMutex;
};

// A library doing all its work on the calling thread (for forked children), logging to stderr.
std::unique_ptr<ScanLibrary> inlineLibrary(const FileSystemCalls* calls = nullptr);
// A scan of `location` taken at `date` with `files` files of 4096 bytes, in memory or on disk.
ScanNodeRef makeScan(const std::string& location, double date, int files = 3);
void writeScan(const std::string& path, const std::string& location, double date, int files = 3);
// The location and date stored in a scan database ("" and 0 when unreadable).
std::string storedLocation(const std::string& path);
double storedDate(const std::string& path);
// Runs SQL on a file through a plain connection, creating the file when missing.
void execSql(const std::string& path, const std::string& sql);
// SQLite's verdict on a file's structure ("ok" when whole), read-only.
std::string quickCheck(const std::string& path);

}  // namespace tw::test
