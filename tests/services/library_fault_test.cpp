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
    previous = acceptAndWait(*makeLibrary(), makeScan("/previous", 100, 50));
    ASSERT_TRUE(previous.cacheReplaced);
    cacheBefore = readFile(cacheFile());
    historyBefore = listFolder(historyFolder());
  }

  // Runs `body` as an unprivileged user with its stderr going to `childErrors`.
  int runUnprivilegedLogging(const std::function<int()>& body) {
    QThreadPool::globalInstance()->waitForDone();  // a child gets only the forking thread
    const std::string errors = data.path("stderr.txt");
    test::writeFile(errors, "");
    ::chmod(errors.c_str(), 0666);
    const int status = test::runUnprivileged([&] {
      const int fd = ::open(errors.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
      return fd < 0 || ::dup2(fd, STDERR_FILENO) < 0 ? 90 : body();
    });
    childErrors = readFile(errors);
    return status;
  }

  // After a fault: the previous cache is whole, the History files complete before are there, and
  // every file under a final name is a whole scan database.
  void expectNothingLost(bool cacheMayBeNew = false) {
    const bool kept = readFile(cacheFile()) == cacheBefore;
    EXPECT_TRUE(kept || (cacheMayBeNew && test::storedLocation(cacheFile()) == "/killed"));
    for (const std::string& name : historyBefore)
      EXPECT_TRUE(library::pathExists(historyFolder() + "/" + name)) << name;
    for (const std::string& folder : {libraryFolder(), historyFolder()}) {
      for (const std::string& path : library::listRetainedScans(folder)) {
        Error error;
        auto store = ScanStore::open(path, &error);
        EXPECT_TRUE(store && store->rootNode()) << path << ": " << error.description;
        EXPECT_EQ(test::Sql(path).text("PRAGMA quick_check"), "ok") << path;
      }
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
  for (const bool writable : {false, true}) {
    SCOPED_TRACE(writable);
    ASSERT_EQ(::chmod(historyFolder().c_str(), writable ? 0777 : 0755), 0);
    const int status = runUnprivilegedLogging([writable] {
      auto library = test::inlineLibrary();
      int alerts = 0;
      std::vector<ScanNodeRef> restored;
      library->setHandlers({[&](const auto& roots) { restored = roots; }, nullptr,
                            [&](const LibraryAlert&) { ++alerts; }});
      ScanNodeRef root = makeScan("/new", 200);
      std::optional<SaveOutcome> saved;
      library->acceptCompletedScan(root, [&](const SaveOutcome& o) { saved = o; });
      if (!saved || saved->written != writable || saved->bound != writable || saved->copied ||
          saved->cacheReplaced || library->cachedRoot() != root)
        return 2;
      if (writable ? root->scanStore()->path() != saved->historyPath : root->scanStore() != nullptr)
        return 3;
      library->loadCachedScanAsynchronously();
      if (alerts != 0 || restored.size() != (writable ? 2u : 1u)) return 4;
      return restored.back()->path() == "/previous" ? 0 : 5;
    });
    EXPECT_EQ(status, 0) << childErrors;
    if (writable) {
      EXPECT_EQ(childErrors, "Unable to copy the scan for the current cache: " +
                                 posixError(EACCES).description + "\n");
      EXPECT_EQ(library::listRetainedScans(historyFolder()).size(), 2u);
    } else {
      // The reason comes from SQLite, which could not create the file.
      EXPECT_TRUE(childErrors.starts_with("Unable to save the scan database: ")) << childErrors;
      EXPECT_EQ(std::count(childErrors.begin(), childErrors.end(), '\n'), 1) << childErrors;
      EXPECT_EQ(listFolder(historyFolder()), historyBefore);
    }
    expectNothingLost();
    EXPECT_EQ(listFolder(libraryFolder()),
              (std::vector<std::string>{"History", "LastScan.sqlite"}));
  }

  // A library folder that cannot be made restores nothing, silently.
  const std::string locked = data.folder("locked");
  ASSERT_EQ(::chmod(locked.c_str(), 0755), 0);
  const int status = runUnprivilegedLogging([&] {
    ::setenv("XDG_DATA_HOME", locked.c_str(), 1);
    auto library = test::inlineLibrary();
    int calls = 0;
    library->setHandlers(
        {[&](const auto&) { ++calls; }, nullptr, [&](const LibraryAlert&) { ++calls; }});
    std::optional<RestoreOutcome> outcome;
    library->loadCachedScanAsynchronously([&](const RestoreOutcome& o) { outcome = o; });
    if (!outcome || !outcome->roots.empty() || outcome->alert || calls != 0) return 2;
    return library::pathExists(locked + "/Tarnwell") ? 3 : 0;
  });
  EXPECT_EQ(status, 0) << childErrors;
  EXPECT_EQ(childErrors, "");
}

// Forks a save of a large scan through `calls`, waits until the child reports in on its pipe or
// `timeoutMs` passes, then kills it. True when the child reported in.
bool saveAndKill(const FileSystemCalls* calls, int timeoutMs) {
  QThreadPool::globalInstance()->waitForDone();
  int fds[2];
  if (::pipe(fds) != 0) return false;
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    test::FaultyCalls::notifyFd = fds[1];
    test::inlineLibrary(calls)->acceptCompletedScan(makeScan("/killed", 300, 40000));
    ::_exit(0);
  }
  ::close(fds[1]);
  pollfd wait{fds[0], POLLIN, 0};
  char byte = 0;
  const bool notified =
      pid > 0 && ::poll(&wait, 1, timeoutMs) == 1 && ::read(fds[0], &byte, 1) == 1;
  if (pid > 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
  ::close(fds[0]);
  return notified;
}

TEST_F(LibraryFaultTest, ProcessKilledWhileCopyingTheCacheLeavesThePreviousCache) {
  test::FaultyCalls::target = "/LastScan-";
  for (int stopAt : {1, 3}) {
    SCOPED_TRACE(stopAt);
    test::FaultyCalls::stopAtWrite = stopAt;
    ASSERT_TRUE(saveAndKill(test::FaultyCalls::calls(), 60000)) << "no write " << stopAt;
    expectNothingLost();
    // The half-written copy stays behind under its pending name until it is old.
    auto library = makeLibrary();
    EXPECT_EQ(library->removeStalePendingFiles(::time(nullptr)), 0);
    EXPECT_EQ(library->removeStalePendingFiles(::time(nullptr) + 10 * 60), 1);
    // The next start restores both scans, the new one from History, and reports nothing.
    RestoreOutcome restored = restoreAndWait(*library);
    EXPECT_FALSE(restored.alert);
    ASSERT_EQ(restored.roots.size(), 2u);
    EXPECT_EQ(restored.roots[0]->path(), "/killed");
    EXPECT_EQ(restored.roots[1]->path(), "/previous");
  }
}

TEST_F(LibraryFaultTest, ProcessKilledAtAnyMomentOfASaveLeavesAWholeCache) {
  std::mt19937 random(20240601);
  for (int round = 0; round < 8; ++round) {
    const int delayMs = std::uniform_int_distribution<int>(0, 900)(random);
    SCOPED_TRACE(delayMs);
    saveAndKill(nullptr, delayMs);
    expectNothingLost(/*cacheMayBeNew=*/true);
    // Back to the previous state for the next round.
    test::writeFile(cacheFile(), cacheBefore);
    for (const std::string& path : library::listRetainedScans(historyFolder()))
      if (path != previous.historyPath) ::unlink(path.c_str());
  }
  EXPECT_FALSE(restoreAndWait(*makeLibrary()).alert);
}

}  // namespace
}  // namespace tw
