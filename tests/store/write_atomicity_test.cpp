// Writing a scan database never loses the previous file: every system call of the writer is made
// to fail in turn (a full disk, a refused folder, a failed rename, …), writers race, readers hold
// the old file, and a writing process is killed at random moments.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "store/scan_store.h"
#include "store/store_test_support.h"

namespace tw {
namespace {

// A tree of `count` files below "/" + name, big enough to take many page writes.
ScanNodeRef makeTree(const std::string& name, int count) {
  ScanNodeRef root = ScanNode::makeRoot("/" + name, true);
  ScanNode* folder = nullptr;
  for (int i = 0; i < count; ++i) {
    if (i % 100 == 0) folder = test::addNode(root.get(), "folder" + std::to_string(i), true, 0);
    test::addNode(folder, name + " file " + std::to_string(i), false, 4096);
  }
  root->setSize(static_cast<uint64_t>(count) * 4096);
  return root;
}

// The root name of the scan in `file`, or "" when it does not open.
std::string rootNameOf(const std::string& file) {
  auto store = ScanStore::open(file);
  ScanNodeRef root = store ? store->rootNode() : nullptr;
  return root ? std::string(root->name()) : "";
}

// --- The fault-injection seam: the n-th call of one kind fails with `err` ---------------------

enum class Call { kOpen, kPwrite, kFsync, kRename, kUnlink };

struct Fault {
  Call call = Call::kOpen;
  int failAt = 0;  // 1-based
  int err = EIO;
  int seen = 0;
  int injected = 0;
} fault;

bool failNow(Call call) {
  if (call != fault.call || ++fault.seen != fault.failAt) return false;
  ++fault.injected;
  errno = fault.err;
  return true;
}

const FileSystemCalls kFaultyCalls = {
    [](const char* path, int flags, mode_t mode) {
      return failNow(Call::kOpen) ? -1 : ::open(path, flags, mode);
    },
    [](int fd, const void* buffer, size_t count, off_t offset) -> ssize_t {
      return failNow(Call::kPwrite) ? -1 : ::pwrite(fd, buffer, count, offset);
    },
    [](int fd) { return failNow(Call::kFsync) ? -1 : ::fsync(fd); },
    [](const char* from, const char* to) {
      return failNow(Call::kRename) ? -1 : ::rename(from, to);
    },
    [](const char* path) { return failNow(Call::kUnlink) ? -1 : ::unlink(path); },
};

class WriteAtomicityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ScanStore::writeRootNode(makeTree("old", 300).get(), file));
    oldBytes = test::readFile(file);
  }
  // Files other than the scan in the folder: temporary files left behind.
  std::vector<std::string> strayFiles() {
    std::vector<std::string> stray = test::listFolder(folder);
    std::erase(stray, "scan.sqlite");
    return stray;
  }

  test::TempTree tree;
  std::string folder = tree.path("History");
  std::string file = folder + "/scan.sqlite";
  std::string oldBytes;
};

TEST_F(WriteAtomicityTest, EachFailingSystemCallLeavesTheOldOrTheNewFileAndNoTemporary) {
  ScanNodeRef newer = makeTree("new", 2000);
  // Each call fails in turn at its first, second, … use; the first failure's error is checked.
  // A refused folder fails the first open as EACCES does, a full disk the writes as ENOSPC does.
  const std::tuple<Call, int, std::optional<Error>> calls[] = {
      {Call::kOpen, EACCES,
       Error{kSQLiteErrorDomain, 14, "Create scan database: unable to open database file"}},
      {Call::kPwrite, ENOSPC,
       Error{kSQLiteErrorDomain, 13, "Write scan database: database or disk is full"}},
      {Call::kFsync, EIO, posixError(EIO)},
      {Call::kRename, EXDEV, posixError(EXDEV)},
      {Call::kUnlink, EIO, std::nullopt},  // a stale temporary file left behind does not matter
  };
  for (const auto& [call, err, firstError] : calls) {
    int failures = 0;
    for (int n = 1;; ++n) {
      fault = Fault{call, n, n == 1 ? err : n % 2 ? EIO : ENOSPC};
      Error error;
      const bool written = ScanStore::writeRootNode(newer.get(), file, kFaultyCalls, &error);
      SCOPED_TRACE("call " + std::to_string(static_cast<int>(call)) + " #" + std::to_string(n));
      EXPECT_EQ(strayFiles(), std::vector<std::string>{});
      if (written) {
        EXPECT_EQ(rootNameOf(file), "new");
      } else {
        ++failures;
        EXPECT_GT(fault.injected, 0);
        EXPECT_EQ(test::readFile(file), oldBytes);
        EXPECT_FALSE(error.description.empty());
        if (n == 1) EXPECT_EQ(error, firstError);
      }
      test::writeFile(file, oldBytes);
      if (fault.injected == 0) break;
      ASSERT_LT(n, 10000);
    }
    EXPECT_EQ(failures > 0, firstError.has_value());
  }
}

TEST_F(WriteAtomicityTest, MissingFoldersAreCreatedReplacedFileKeepsItsModeAndBadTargetsFail) {
  const std::string deep = tree.path("a/b/c/scan.sqlite");
  EXPECT_TRUE(ScanStore::writeRootNode(makeTree("new", 10).get(), deep));
  EXPECT_EQ(rootNameOf(deep), "new");
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  EXPECT_TRUE(ScanStore::writeRootNode(makeTree("new", 10).get(), file));
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // No root or a relative destination fails without an error.
  Error error{"unchanged", 1, "unchanged"};
  EXPECT_FALSE(ScanStore::writeRootNode(nullptr, file, &error));
  EXPECT_FALSE(ScanStore::writeRootNode(makeTree("x", 1).get(), "relative.sqlite", &error));
  EXPECT_EQ(error.domain, "unchanged");
}

TEST_F(WriteAtomicityTest, RacingWritersLeaveOneCompleteFileAndAnOpenReaderKeepsItsOwn) {
  auto store = ScanStore::open(file);
  ASSERT_TRUE(store);
  ScanNodeRef reading = store->rootNode();
  ScanNodeRef a = makeTree("a", 3000), b = makeTree("b", 3000);
  bool allWritten = true, mine = true;
  std::thread other([&] {
    for (int i = 0; i < 4; ++i) allWritten &= ScanStore::writeRootNode(b.get(), file);
  });
  for (int i = 0; i < 4; ++i) mine &= ScanStore::writeRootNode(a.get(), file);
  other.join();
  EXPECT_TRUE(allWritten && mine);
  auto now = ScanStore::open(file);
  ASSERT_TRUE(now);
  ScanNodeRef root = now->rootNode();
  ASSERT_TRUE(root);
  EXPECT_TRUE(root->name() == "a" || root->name() == "b");
  EXPECT_EQ(now->allFilesUnderNode(root.get()).size(), 3000u);
  EXPECT_EQ(strayFiles(), std::vector<std::string>{});
  // The reader opened before the writes still reads the old scan in full.
  EXPECT_EQ(reading->children().size(), 3u);
  EXPECT_EQ(store->allFilesUnderNode(reading.get()).size(), 300u);
  EXPECT_FALSE(store->lastReadError());
}

TEST_F(WriteAtomicityTest, WriterKilledAtAnyMomentLeavesTheOldFileAndAtMostATemporary) {
  ScanNodeRef newer = makeTree("new", 30000);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(ScanStore::writeRootNode(newer.get(), tree.path("timing.sqlite")));
  const auto oneWrite = std::chrono::steady_clock::now() - start;
  int sawOld = 0;
  for (int round = 0; round < 12; ++round) {
    test::writeFile(file, oldBytes);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ScanStore::writeRootNode(newer.get(), file);
      _exit(0);
    }
    std::this_thread::sleep_for(oneWrite * round / 10);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::vector<std::string> stray = strayFiles();
    ASSERT_LE(stray.size(), 1u);
    for (const std::string& name : stray) {
      EXPECT_TRUE(name.starts_with(".scan.sqlite-") && name.ends_with(".pending")) << name;
      unlink((folder + "/" + name).c_str());
    }
    if (test::readFile(file) == oldBytes) {
      ++sawOld;
    } else {
      EXPECT_EQ(rootNameOf(file), "new") << "round " << round;
    }
  }
  EXPECT_GT(sawOld, 0);
}

}  // namespace
}  // namespace tw
