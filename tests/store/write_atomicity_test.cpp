// Writing a scan database never loses the previous file: every system call of the writer is made
// to fail in turn, the disk fills up, the folder is read-only, writers race, readers hold the old
// file, and a writing process is killed at random moments.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "store/scan_store.h"
#include "store/store_test_support.h"
#include "support/temp_tree.h"

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

// Files other than `keep` in `folder`.
std::vector<std::string> strayFiles(const std::string& folder, const std::string& keep) {
  std::vector<std::string> stray;
  for (const std::string& name : test::listFolder(folder))
    if (name != keep) stray.push_back(name);
  return stray;
}

// The root name of the scan in `file`, or "" when it does not open.
std::string rootNameOf(const std::string& file) {
  auto store = ScanStore::open(file);
  if (!store) return "";
  ScanNodeRef root = store->rootNode();
  return root ? std::string(root->name()) : "";
}

// --- Fault injection ---------------------------------------------------------------------------

enum class Call { kOpen, kPwrite, kFsync, kRename, kUnlink };

struct Fault {
  Call call = Call::kOpen;
  int failAt = 0;  // fail the n-th call of that kind (1-based)
  int seen = 0;
  int injected = 0;
  int err = EIO;
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

  test::TempTree tree;
  std::string file = tree.path("History/scan.sqlite");
  std::string folder = tree.path("History");
  std::string oldBytes;
};

TEST_F(WriteAtomicityTest, EachFailingSystemCallLeavesTheOldOrTheNewFileAndNoTemporary) {
  ScanNodeRef newer = makeTree("new", 2000);
  for (Call call : {Call::kOpen, Call::kPwrite, Call::kFsync, Call::kRename, Call::kUnlink}) {
    int failures = 0;
    for (int n = 1;; ++n) {
      fault = Fault{call, n, 0, 0, n % 2 ? EIO : ENOSPC};
      Error error;
      const bool written = ScanStore::writeRootNode(newer.get(), file, kFaultyCalls, &error);
      const bool hit = fault.injected > 0;
      SCOPED_TRACE("call " + std::to_string(static_cast<int>(call)) + " #" + std::to_string(n));
      EXPECT_EQ(strayFiles(folder, "scan.sqlite"), std::vector<std::string>{});
      if (written) {
        EXPECT_EQ(rootNameOf(file), "new");
      } else {
        ++failures;
        EXPECT_TRUE(hit);
        EXPECT_EQ(test::readFile(file), oldBytes);
        EXPECT_FALSE(error.description.empty());
      }
      test::writeFile(file, oldBytes);
      if (!hit) break;
      ASSERT_LT(n, 10000);
    }
    // Writes fail for open, pwrite, fsync and rename faults; a failed removal of a stale
    // temporary file does not matter.
    if (call == Call::kUnlink) {
      EXPECT_EQ(failures, 0);
    } else {
      EXPECT_GT(failures, 0);
    }
  }
}

TEST_F(WriteAtomicityTest, FailuresReportTheirDomainCodeAndContext) {
  ScanNodeRef newer = makeTree("new", 500);
  const std::vector<std::pair<Fault, Error>> cases = {
      {{Call::kOpen, 1},
       {kSQLiteErrorDomain, 14, "Create scan database: unable to open database file"}},
      {{Call::kPwrite, 1, 0, 0, ENOSPC},
       {kSQLiteErrorDomain, 13, "Write scan database: database or disk is full"}},
      {{Call::kRename, 1, 0, 0, EXDEV}, posixError(EXDEV)},
      {{Call::kFsync, 1, 0, 0, EIO}, posixError(EIO)},
  };
  for (const auto& [injected, expected] : cases) {
    fault = injected;
    Error error;
    EXPECT_FALSE(ScanStore::writeRootNode(newer.get(), file, kFaultyCalls, &error));
    EXPECT_EQ(error, expected);
    EXPECT_EQ(test::readFile(file), oldBytes);
    EXPECT_EQ(strayFiles(folder, "scan.sqlite"), std::vector<std::string>{});
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

TEST_F(WriteAtomicityTest, ReadOnlyFolderRefusesTheWriteAndKeepsTheOldFile) {
  ScanNodeRef newer = makeTree("new", 50);
  const int status = test::runUnprivileged([&] {
    Error error;
    if (ScanStore::writeRootNode(newer.get(), file, &error)) return 1;
    if (error.domain != kSQLiteErrorDomain || error.code != 14) return 2;
    if (error.description != "Create scan database: unable to open database file") return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(test::readFile(file), oldBytes);
  EXPECT_EQ(strayFiles(folder, "scan.sqlite"), std::vector<std::string>{});
}

TEST_F(WriteAtomicityTest, FullDiskKeepsTheOldFile) {
  if (!test::canMount()) GTEST_SKIP() << "mounting a small tmpfs is not allowed here";
  const std::string small = tree.folder("small");
  test::MountGuard mounts;
  ASSERT_TRUE(mounts.mount("tarnwell-full", small, "tmpfs", 0, "size=256k"));
  const std::string target = small + "/scan.sqlite";
  ASSERT_TRUE(ScanStore::writeRootNode(makeTree("old", 50).get(), target));
  const std::string before = test::readFile(target);
  Error error;
  EXPECT_FALSE(ScanStore::writeRootNode(makeTree("new", 20000).get(), target, &error));
  EXPECT_EQ(error,
            (Error{kSQLiteErrorDomain, 13, "Write scan database: database or disk is full"}));
  EXPECT_EQ(test::readFile(target), before);
  EXPECT_EQ(strayFiles(small, "scan.sqlite"), std::vector<std::string>{});
}

TEST_F(WriteAtomicityTest, TwoWritersToOneDestinationLeaveOneCompleteFile) {
  ScanNodeRef a = makeTree("a", 3000);
  ScanNodeRef b = makeTree("b", 3000);
  bool allWritten = true;
  std::thread other([&] {
    for (int i = 0; i < 4; ++i) allWritten &= ScanStore::writeRootNode(b.get(), file);
  });
  bool mine = true;
  for (int i = 0; i < 4; ++i) mine &= ScanStore::writeRootNode(a.get(), file);
  other.join();
  EXPECT_TRUE(allWritten && mine);
  auto store = ScanStore::open(file);
  ASSERT_TRUE(store);
  ScanNodeRef root = store->rootNode();
  ASSERT_TRUE(root);
  EXPECT_TRUE(root->name() == "a" || root->name() == "b");
  EXPECT_EQ(store->allFilesUnderNode(root.get()).size(), 3000u);
  EXPECT_EQ(strayFiles(folder, "scan.sqlite"), std::vector<std::string>{});
}

TEST_F(WriteAtomicityTest, OpenReaderKeepsReadingTheFileItOpenedWhileItIsReplaced) {
  auto store = ScanStore::open(file);
  ASSERT_TRUE(store);
  ScanNodeRef root = store->rootNode();
  ASSERT_TRUE(ScanStore::writeRootNode(makeTree("new", 700).get(), file));
  EXPECT_EQ(root->children().size(), 3u);
  EXPECT_EQ(store->allFilesUnderNode(root.get()).size(), 300u);
  EXPECT_FALSE(store->lastReadError());
  EXPECT_EQ(rootNameOf(file), "new");
}

TEST_F(WriteAtomicityTest, WriterKilledAtAnyMomentLeavesTheOldFileAndAtMostATemporary) {
  ScanNodeRef newer = makeTree("new", 30000);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(ScanStore::writeRootNode(newer.get(), tree.path("timing.sqlite")));
  const auto oneWrite = std::chrono::steady_clock::now() - start;
  unlink(tree.path("timing.sqlite").c_str());

  int sawNew = 0, sawOld = 0;
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
    int status = 0;
    waitpid(child, &status, 0);

    const std::vector<std::string> stray = strayFiles(folder, "scan.sqlite");
    ASSERT_LE(stray.size(), 1u);
    if (!stray.empty()) {
      EXPECT_TRUE(stray[0].starts_with(".scan.sqlite-") && stray[0].ends_with(".pending"))
          << stray[0];
      unlink((folder + "/" + stray[0]).c_str());
    }
    if (test::readFile(file) == oldBytes) {
      ++sawOld;
    } else {
      EXPECT_EQ(rootNameOf(file), "new") << "round " << round;
      ++sawNew;
    }
  }
  EXPECT_GT(sawOld, 0);
}

}  // namespace
}  // namespace tw
