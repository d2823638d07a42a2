// The library under hostile conditions: a library folder the user may not change, and a process
// killed while it saves. Nothing saved before may be lost.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QThreadPool>
#include <algorithm>
#include <random>

#include "services/library_files.h"
#include "services/library_test_support.h"
#include "store/scan_store.h"

namespace tw {
namespace {

using test::listFolder;
using test::makeScan;
using test::readFile;

class LibraryFaultTest : public test::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    {
      auto library = makeLibrary();
      previous = acceptAndWait(*library, makeScan("/previous", 100, 50));
      ASSERT_TRUE(previous.cacheReplaced);
    }
    cacheBefore = readFile(cacheFile());
    historyBefore = listFolder(historyFolder());
  }

  // Runs `body` as an unprivileged user with its stderr going to a file; returns the exit status
  // and leaves the stderr text in `childErrors`.
  int runUnprivilegedLogging(const std::function<int()>& body) {
    // A child gets only the forking thread: no pool thread may hold a lock at that moment.
    QThreadPool::globalInstance()->waitForDone();
    const std::string errors = data.path("stderr.txt");
    test::writeFile(errors, "");
    ::chmod(errors.c_str(), 0666);
    const int status = test::runUnprivileged([&] {
      const int fd = ::open(errors.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
      if (fd < 0 || ::dup2(fd, STDERR_FILENO) < 0) return 90;
      return body();
    });
    childErrors = readFile(errors);
    return status;
  }

  // Checks after a fault: the previous cache is whole and the History files that were complete
  // before are untouched.
  void expectPreviousCacheIntact() {
    EXPECT_EQ(readFile(cacheFile()), cacheBefore);
    EXPECT_EQ(test::storedLocation(cacheFile()), "/previous");
    for (const std::string& name : historyBefore) {
      EXPECT_TRUE(library::pathExists(historyFolder() + "/" + name)) << name;
    }
  }

  SaveOutcome previous;
  std::string cacheBefore;
  std::vector<std::string> historyBefore;
  std::string childErrors;
};

// As a user who may not change the library folder: with History read-only too the new scan stays
// in memory only; with History writable it is kept there. Either way the cache stays, every saved
// scan reads back, no alert shows and one line is logged.
TEST_F(LibraryFaultTest, ReadOnlyLibrarySaveShowsNothingLogsALineAndKeepsTheCache) {
  ASSERT_EQ(::chmod(libraryFolder().c_str(), 0755), 0);
  for (const bool historyWritable : {false, true}) {
    SCOPED_TRACE(historyWritable);
    ASSERT_EQ(::chmod(historyFolder().c_str(), historyWritable ? 0777 : 0755), 0);
    const int status = runUnprivilegedLogging([historyWritable] {
      auto library = test::inlineLibrary();
      int alerts = 0;
      std::vector<ScanNodeRef> restored;
      library->setHandlers({[&](const std::vector<ScanNodeRef>& roots) { restored = roots; },
                            nullptr, [&](const LibraryAlert&) { ++alerts; }});
      ScanNodeRef root = makeScan("/new", 200);
      std::optional<SaveOutcome> outcome;
      library->acceptCompletedScan(root, [&](const SaveOutcome& o) { outcome = o; });
      if (!outcome || outcome->written != historyWritable || outcome->bound != historyWritable ||
          outcome->copied || outcome->cacheReplaced)
        return 2;
      if (library->cachedRoot() != root) return 3;
      if (historyWritable ? root->scanStore()->path() != outcome->historyPath
                          : root->scanStore() != nullptr)
        return 4;
      library->loadCachedScanAsynchronously();
      if (alerts != 0 || restored.size() != (historyWritable ? 2u : 1u)) return 5;
      if (restored.back()->path() != "/previous") return 6;
      return 0;
    });
    EXPECT_EQ(status, 0) << childErrors;
    if (historyWritable) {
      EXPECT_EQ(childErrors, "Unable to copy the scan for the current cache: " +
                                 posixError(EACCES).description + "\n");
      EXPECT_EQ(library::listRetainedScans(historyFolder()).size(), 2u);
    } else {
      // The reason comes from SQLite, which could not create the file.
      EXPECT_TRUE(childErrors.starts_with("Unable to save the scan database: ")) << childErrors;
      EXPECT_EQ(std::count(childErrors.begin(), childErrors.end(), '\n'), 1) << childErrors;
      EXPECT_EQ(listFolder(historyFolder()), historyBefore);
    }
    expectPreviousCacheIntact();
    EXPECT_EQ(listFolder(libraryFolder()),
              (std::vector<std::string>{"History", "LastScan.sqlite"}));
  }
}

TEST_F(LibraryFaultTest, LibraryFolderThatCannotBeCreatedRestoresNothingSilently) {
  const std::string locked = data.folder("locked");
  ASSERT_EQ(::chmod(locked.c_str(), 0755), 0);
  const int status = runUnprivilegedLogging([&] {
    ::setenv("XDG_DATA_HOME", locked.c_str(), 1);
    auto library = test::inlineLibrary();
    int calls = 0;
    library->setHandlers({[&](const std::vector<ScanNodeRef>&) { ++calls; }, nullptr,
                          [&](const LibraryAlert&) { ++calls; }});
    std::optional<RestoreOutcome> outcome;
    library->loadCachedScanAsynchronously([&](const RestoreOutcome& o) { outcome = o; });
    if (!outcome || !outcome->roots.empty() || outcome->alert || calls != 0) return 2;
    return library::pathExists(locked + "/Tarnwell") ? 3 : 0;
  });
  EXPECT_EQ(status, 0) << childErrors;
  EXPECT_EQ(childErrors, "");
}

// pwrite that stops the process for good at the chosen write of the cache copy, after telling
// the parent through a pipe.
struct StopDuringCopy {
  static inline int notifyFd = -1;
  static inline int stopAtWrite = 1;
  static inline int cacheWrites = 0;

  static ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset) {
    if (test::fdPathContains(fd, "/LastScan-") && ++cacheWrites == stopAtWrite) {
      (void)!::pwrite(fd, buffer, count / 2, offset);  // a torn write
      (void)!::write(notifyFd, "x", 1);
      for (;;) ::pause();
    }
    return ::pwrite(fd, buffer, count, offset);
  }
};

// Forks `child`, waits until it writes to the pipe it is given (at most `timeoutMs`), then kills
// it. True when the child reported in before it was killed.
bool runAndKill(const std::function<void(int notifyFd)>& child, int timeoutMs) {
  QThreadPool::globalInstance()->waitForDone();
  int fds[2];
  if (::pipe(fds) != 0) return false;
  const pid_t pid = ::fork();
  if (pid < 0) return false;
  if (pid == 0) {
    ::close(fds[0]);
    child(fds[1]);
    ::_exit(0);
  }
  ::close(fds[1]);
  pollfd wait{fds[0], POLLIN, 0};
  char byte = 0;
  const bool notified = ::poll(&wait, 1, timeoutMs) == 1 && ::read(fds[0], &byte, 1) == 1;
  ::kill(pid, SIGKILL);
  int status = 0;
  ::waitpid(pid, &status, 0);
  ::close(fds[0]);
  return notified;
}

void saveLargeScan(const FileSystemCalls* calls) {
  test::inlineLibrary(calls)->acceptCompletedScan(makeScan("/killed", 300, 40000));
}

// Every file under a final name in the library is a whole scan database.
void expectOnlyWholeDatabases(const std::string& folder) {
  for (const std::string& path : library::listRetainedScans(folder)) {
    Error error;
    auto store = ScanStore::open(path, &error);
    EXPECT_TRUE(store && store->rootNode()) << path << ": " << error.description;
    EXPECT_EQ(test::quickCheck(path), "ok") << path;
  }
}

TEST_F(LibraryFaultTest, ProcessKilledWhileCopyingTheCacheLeavesThePreviousCache) {
  for (int stopAt : {1, 3}) {
    SCOPED_TRACE(stopAt);
    const bool stopped = runAndKill(
        [stopAt](int notifyFd) {
          StopDuringCopy::notifyFd = notifyFd;
          StopDuringCopy::stopAtWrite = stopAt;
          static FileSystemCalls calls = FileSystemCalls::system();
          calls.pwrite = &StopDuringCopy::pwrite;
          saveLargeScan(&calls);
        },
        60000);
    ASSERT_TRUE(stopped) << "the copy never reached write " << stopAt;
    expectPreviousCacheIntact();
    expectOnlyWholeDatabases(libraryFolder());
    expectOnlyWholeDatabases(historyFolder());
    // The half-written copy stays behind under its pending name until it is old.
    auto library = makeLibrary();
    EXPECT_EQ(library->removeStalePendingFiles(::time(nullptr)), 0);
    EXPECT_EQ(library->removeStalePendingFiles(::time(nullptr) + 10 * 60), 1);
    // The next start restores both scans: the new one from History, and reports nothing.
    RestoreOutcome restored = restoreAndWait(*library);
    EXPECT_FALSE(restored.alert);
    ASSERT_EQ(restored.roots.size(), 2u);
    EXPECT_EQ(restored.roots[0]->path(), "/killed");
    EXPECT_EQ(restored.roots[1]->path(), "/previous");
    for (const std::string& name : listFolder(libraryFolder())) {
      EXPECT_FALSE(name.ends_with(".pending")) << name;
    }
  }
}

TEST_F(LibraryFaultTest, ProcessKilledAtAnyMomentOfASaveLeavesAWholeCache) {
  std::mt19937 random(20240601);
  for (int round = 0; round < 8; ++round) {
    const int delayMs = std::uniform_int_distribution<int>(0, 900)(random);
    SCOPED_TRACE(delayMs);
    runAndKill([](int) { saveLargeScan(nullptr); }, delayMs);
    const std::string cache = readFile(cacheFile());
    if (cache != cacheBefore) {
      EXPECT_EQ(test::storedLocation(cacheFile()), "/killed");
    }
    expectOnlyWholeDatabases(libraryFolder());
    expectOnlyWholeDatabases(historyFolder());
    // Back to the previous state for the next round.
    test::writeFile(cacheFile(), cacheBefore);
    for (const std::string& path : library::listRetainedScans(historyFolder())) {
      if (path != previous.historyPath) ::unlink(path.c_str());
    }
  }
  auto library = makeLibrary();
  RestoreOutcome restored = restoreAndWait(*library);
  EXPECT_FALSE(restored.alert);
}

}  // namespace
}  // namespace tw
