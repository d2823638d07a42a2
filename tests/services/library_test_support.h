// The scan library's test world: a stand-in for the GUI thread, a private library folder and
// preferences per test, one seam for file faults, and small scans written straight to disk.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <QSettings>
#include <QThreadPool>

#include "services/library_preferences.h"
#include "services/scan_library.h"
#include "store/scan_store.h"
#include "store/store_test_support.h"
#include "support/main_queue.h"
#include "support/temp_tree.h"

namespace tw::test {

// File calls for files whose path contains `target`: a write or a rename fails with the errno
// given, or the `stopAtWrite`th write is torn, `notifyFd` hears of it and the process waits to be
// killed. Everything else goes to the system.
struct FaultyCalls {
  static inline std::string target;
  static inline int failWrite = 0, failRename = 0, stopAtWrite = 0, notifyFd = -1, writes = 0;
  static bool aimed(const std::string& path) { return path.find(target) != std::string::npos; }
  static ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset) {
    char path[4096];
    const ssize_t n = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, 4095);
    if ((failWrite || stopAtWrite) && n > 0 && aimed(std::string(path, size_t(n)))) {
      if (failWrite) return errno = failWrite, -1;
      if (++writes == stopAtWrite) {
        (void)!::pwrite(fd, buffer, count / 2, offset);
        (void)!::write(notifyFd, "x", 1);
        for (;;) ::pause();
      }
    }
    return ::pwrite(fd, buffer, count, offset);
  }
  static int rename(const char* from, const char* to) {
    if (failRename && aimed(from)) return errno = failRename, -1;
    return ::rename(from, to);
  }
  static const FileSystemCalls* calls() {
    static FileSystemCalls c = [] {
      FileSystemCalls out = FileSystemCalls::system();
      out.pwrite = &pwrite;
      out.rename = &rename;
      return out;
    }();
    return &c;
  }
};

class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // HOME and the XDG folders of the whole program: QSettings fixes its folder on first use.
    static TempTree home;
    static const bool set = [] {
      for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"})
        ::setenv(name, home.folder(name).c_str(), 1);
      return true;
    }();
    (void)set;
    ::setenv("XDG_DATA_HOME", data.root().c_str(), 1);
    QSettings(library::kSettingsOrganization, library::kSettingsApplication).clear();
    FaultyCalls::failWrite = FaultyCalls::failRename = FaultyCalls::stopAtWrite = 0;
    library = makeLibrary();
    history = library->historyDirectoryPath();
    library->setHandlers(handlers());
  }
  void TearDown() override {
    QThreadPool::globalInstance()->waitForDone();  // before the folders go away
    main.drain(0);
  }

  // A library on the real thread pool whose callbacks go through `main`, logging to `logged`.
  std::unique_ptr<ScanLibrary> makeLibrary(ScanLibrary::Options options = {}) {
    if (!options.mainExecutor) options.mainExecutor = main.executor();
    options.log = [this](const std::string& line) {
      std::lock_guard lock(loggedMutex);
      logged.push_back(line);
    };
    return std::make_unique<ScanLibrary>(std::move(options));
  }
  SaveOutcome acceptAndWait(ScanLibrary& library, const ScanNodeRef& root) {
    std::optional<SaveOutcome> outcome;
    library.acceptCompletedScan(root, [&](const SaveOutcome& result) { outcome = result; });
    EXPECT_TRUE(main.runUntil([&] { return outcome.has_value(); }));
    return outcome.value_or(SaveOutcome{});
  }
  RestoreOutcome restoreAndWait(ScanLibrary& library) {
    std::optional<RestoreOutcome> outcome;
    library.loadCachedScanAsynchronously([&](const RestoreOutcome& result) { outcome = result; });
    EXPECT_TRUE(main.runUntil([&] { return outcome.has_value(); }));
    return outcome.value_or(RestoreOutcome{});
  }

  // Handlers that record what a library hands to the shell.
  ScanLibrary::Handlers handlers() {
    return {[this](const std::vector<ScanNodeRef>& roots) { restored.push_back(roots); },
            [this](const ScanNodeRef& root) { forgotten.push_back(root); },
            [this](const LibraryAlert& alert) { alerts.push_back(alert); }};
  }
  std::optional<LibraryAlert> forget(const ScanNodeRef& root, ForgetChoice choice) {
    std::optional<std::optional<LibraryAlert>> result;
    library->forgetScanResult(root, choice, [&](auto alert) { result = alert; });
    EXPECT_TRUE(main.runUntil([&] { return result.has_value(); }));
    return result.value_or(std::nullopt);
  }

  std::string libraryFolder() const { return data.path("Tarnwell"); }
  std::string historyFolder() const { return data.path("Tarnwell/History"); }
  std::string cacheFile() const { return data.path("Tarnwell/LastScan.sqlite"); }

  TempTree data;
  MainQueue main;
  std::vector<std::string> logged;
  std::mutex loggedMutex;
  // A library on the test's folder, with `handlers()` installed, and what it handed over.
  std::unique_ptr<ScanLibrary> library;
  std::string history;
  std::vector<std::vector<ScanNodeRef>> restored;
  std::vector<ScanNodeRef> forgotten;
  std::vector<LibraryAlert> alerts;
};

// A library doing all its work on the calling thread (for forked children), logging to stderr.
inline std::unique_ptr<ScanLibrary> inlineLibrary(const FileSystemCalls* calls = nullptr) {
  ScanLibrary::Options options;
  options.backgroundExecutor = inlineExecutor();
  options.calls = calls;
  return std::make_unique<ScanLibrary>(std::move(options));
}

// A scan of `location` taken at `date` with `files` files of 4096 bytes, in memory or on disk.
inline ScanNodeRef makeScan(const std::string& location, double date, int files = 3) {
  ScanNodeRef root = ScanNode::makeRoot(location, true);
  for (int i = 0; i < files; ++i) {
    ScanNode* file = root->createNode("file" + std::to_string(i) + ".bin", false);
    file->setSize(4096);
    file->setModificationDate(date - 100);
    root->addChild(file);
  }
  root->setSize(4096ull * static_cast<uint64_t>(files));
  root->setScanDate(date);
  root->sortRecursively();
  return root;
}
inline void writeScan(const std::string& path, const std::string& location, double date,
                      int files = 3) {
  Error error;
  ASSERT_TRUE(ScanStore::writeRootNode(makeScan(location, date, files).get(), path, &error))
      << error.description;
}

// The location and date stored in a scan database ("" and 0 when unreadable).
inline std::string storedLocation(const std::string& path) {
  auto metadata = ScanStore::metadataAt(path);
  return metadata ? metadata->locationPath : std::string();
}
inline double storedDate(const std::string& path) {
  auto metadata = ScanStore::metadataAt(path);
  return metadata && metadata->scanDate ? *metadata->scanDate : 0.0;
}

}  // namespace tw::test
