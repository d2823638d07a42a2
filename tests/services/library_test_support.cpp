#include "services/library_test_support.h"

#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <QSettings>
#include <QThreadPool>
#include <chrono>

#include "services/library_preferences.h"
#include "store/scan_store.h"

namespace tw::test {

namespace {

// HOME and the XDG folders of the whole test program. QSettings fixes its folder on first use,
// so XDG_CONFIG_HOME is set once, before any test runs.
class PrivateHomeEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    home_ = std::make_unique<TempTree>();
    for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "XDG_DATA_HOME"})
      ::setenv(name, home_->folder(name).c_str(), 1);
  }
  void TearDown() override { home_.reset(); }

 private:
  std::unique_ptr<TempTree> home_;
};

[[maybe_unused]] ::testing::Environment* const privateHome =
    ::testing::AddGlobalTestEnvironment(new PrivateHomeEnvironment);

// Whether the file open as `fd` has a path containing `text`.
bool fdPathContains(int fd, const std::string& text) {
  char path[4096];
  const ssize_t n =
      ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1);
  return n > 0 && std::string(path, static_cast<std::size_t>(n)).find(text) != std::string::npos;
}

ssize_t faultyWrite(int fd, const void* buffer, size_t count, off_t offset) {
  static int writes = 0;
  if ((FaultyCalls::failWrite || FaultyCalls::stopAtWrite) &&
      fdPathContains(fd, FaultyCalls::target)) {
    if (FaultyCalls::failWrite) {
      errno = FaultyCalls::failWrite;
      return -1;
    }
    if (++writes == FaultyCalls::stopAtWrite) {
      (void)!::pwrite(fd, buffer, count / 2, offset);
      (void)!::write(FaultyCalls::notifyFd, "x", 1);
      for (;;) ::pause();
    }
  }
  return ::pwrite(fd, buffer, count, offset);
}

int faultyRename(const char* from, const char* to) {
  if (FaultyCalls::failRename && std::string(from).find(FaultyCalls::target) != std::string::npos) {
    errno = FaultyCalls::failRename;
    return -1;
  }
  return ::rename(from, to);
}

}  // namespace

const FileSystemCalls* FaultyCalls::calls() {
  static FileSystemCalls c = [] {
    FileSystemCalls out = FileSystemCalls::system();
    out.pwrite = &faultyWrite;
    out.rename = &faultyRename;
    return out;
  }();
  return &c;
}

Executor MainQueue::executor() const {
  return [inner = inner_](std::function<void()> work) {
    std::lock_guard lock(inner->mutex);
    inner->queue.push_back(std::move(work));
    inner->posted.notify_all();
  };
}

bool MainQueue::runUntil(const std::function<bool()>& done, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    std::function<void()> work;
    {
      std::unique_lock lock(inner_->mutex);
      if (!inner_->posted.wait_until(lock, deadline, [&] { return !inner_->queue.empty(); }))
        return false;
      work = std::move(inner_->queue.front());
      inner_->queue.pop_front();
    }
    work();
  }
  return true;
}

void LibraryTest::SetUp() {
  ::setenv("XDG_DATA_HOME", data.root().c_str(), 1);
  QSettings(library::kSettingsOrganization, library::kSettingsApplication).clear();
  FaultyCalls::failWrite = FaultyCalls::failRename = FaultyCalls::stopAtWrite = 0;
}

void LibraryTest::TearDown() {
  // Let work still on the pool finish before its folders go away.
  QThreadPool::globalInstance()->waitForDone();
  main.drain(0);
}

std::unique_ptr<ScanLibrary> LibraryTest::makeLibrary(ScanLibrary::Options options) {
  if (!options.mainExecutor) options.mainExecutor = main.executor();
  options.log = [this](const std::string& line) {
    std::lock_guard lock(loggedMutex);
    logged.push_back(line);
  };
  return std::make_unique<ScanLibrary>(std::move(options));
}

SaveOutcome LibraryTest::acceptAndWait(ScanLibrary& library, const ScanNodeRef& root) {
  std::optional<SaveOutcome> outcome;
  library.acceptCompletedScan(root, [&](const SaveOutcome& result) { outcome = result; });
  EXPECT_TRUE(main.runUntil([&] { return outcome.has_value(); }));
  return outcome.value_or(SaveOutcome{});
}

RestoreOutcome LibraryTest::restoreAndWait(ScanLibrary& library) {
  std::optional<RestoreOutcome> outcome;
  library.loadCachedScanAsynchronously([&](const RestoreOutcome& result) { outcome = result; });
  EXPECT_TRUE(main.runUntil([&] { return outcome.has_value(); }));
  return outcome.value_or(RestoreOutcome{});
}

std::unique_ptr<ScanLibrary> inlineLibrary(const FileSystemCalls* calls) {
  ScanLibrary::Options options;
  options.backgroundExecutor = inlineExecutor();
  options.calls = calls;
  return std::make_unique<ScanLibrary>(std::move(options));
}

ScanNodeRef makeScan(const std::string& location, double date, int files) {
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

void writeScan(const std::string& path, const std::string& location, double date, int files) {
  Error error;
  ASSERT_TRUE(ScanStore::writeRootNode(makeScan(location, date, files).get(), path, &error))
      << error.description;
}

std::string storedLocation(const std::string& path) {
  auto metadata = ScanStore::metadataAt(path);
  return metadata ? metadata->locationPath : std::string();
}

double storedDate(const std::string& path) {
  auto metadata = ScanStore::metadataAt(path);
  return metadata && metadata->scanDate ? *metadata->scanDate : 0.0;
}

void execSql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
            SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
  sqlite3_close_v2(db);
}

std::string quickCheck(const std::string& path) {
  sqlite3* db = nullptr;
  sqlite3_stmt* statement = nullptr;
  std::string verdict;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
      sqlite3_prepare_v2(db, "PRAGMA quick_check", -1, &statement, nullptr) == SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW)
    verdict = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
  sqlite3_finalize(statement);
  sqlite3_close_v2(db);
  return verdict;
}

}  // namespace tw::test
