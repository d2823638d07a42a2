// Writing scan files: what a written file holds, the cleanup kinds, the version check and the
// upgrades of version 1 and 2 files, files that cannot be read; and that writing never loses the
// previous file: every system call of the writer is made to fail in turn, writers race, readers
// hold the old file, and a writing process is killed at random moments.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "store/scan_store.h"
#include "store/store_test_support.h"

namespace tw {
namespace {

using test::Sql;

// Turns a file written today back into one of schema version 1 or 2, as earlier releases wrote
// them: without the columns, table and index later versions added.
void downgrade(const std::string& file, int schemaVersion, int userVersion) {
  Sql sql(file);
  sql.exec(
      "DROP INDEX items_cleanup_idx; DROP TABLE scan_issues; ALTER TABLE items DROP COLUMN "
      "cleanup_kind; ALTER TABLE items DROP COLUMN checksum_modification_date; ALTER TABLE items "
      "DROP COLUMN checksum_size;");
  if (schemaVersion == 1) sql.exec("ALTER TABLE items DROP COLUMN is_deleted");
  sql.exec("UPDATE scan_metadata SET schema_version=" + std::to_string(schemaVersion) +
           "; PRAGMA user_version=" + std::to_string(userVersion));
}

class FormatTest : public ::testing::Test {
 protected:
  test::TempTree tree;
  std::string file = tree.path("scan.sqlite");
};

TEST_F(FormatTest, WrittenFileCarriesVersionMetadataIndexesAndRowsInPreOrder) {
  ScanNodeRef root = test::makeSampleTree();
  test::child(root.get(), "docs")->children()[1]->setModificationDate(0);  // 1970 is a date
  Error error;
  ASSERT_TRUE(ScanStore::writeRootNode(root.get(), file, &error)) << error.description;
  Sql sql(file);
  EXPECT_EQ(sql.integer("PRAGMA user_version"), 3);
  EXPECT_EQ(
      sql.text("SELECT schema_version||'|'||root_node_id||'|'||root_path||'|'||root_name||'|'||"
               "logical_size||'|'||source_fingerprint||'|'||source_item_count||'|'||"
               "CAST(scan_date AS INTEGER) FROM scan_metadata"),
      "3|1|/data|data|1000|" + std::to_string(static_cast<int64_t>(0xfedcba9876543210ull)) +
          "|11|1700000000");
  EXPECT_EQ(sql.text("SELECT path||'|'||message FROM scan_issues"),
            "/data/locked|Permission denied");
  EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM sqlite_master WHERE type='index' AND name LIKE "
                        "'items_%_idx'"),
            6);
  // Synthetic entries carry their folder's path; unknown dates are NULL.
  EXPECT_EQ(sql.text("SELECT group_concat(r, '\n') FROM (SELECT name||'|'||path||'|'||"
                     "COALESCE(parent_id,'-')||'|'||extension||'|'||COALESCE(modification_date,"
                     "'-') AS r FROM items ORDER BY id)"),
            "data|/data|-||-\n"
            "docs|/data/docs|1||-\n"
            "Annual REPORT.pdf|/data/docs/Annual REPORT.pdf|2|pdf|1000.0\n"
            "a_b|/data/docs/a_b|2||0.0\n"
            "notes.txt|/data/docs/notes.txt|2|txt|1000.0\n"
            "cache|/data/cache|1||-\n"
            "big.bin|/data/cache/big.bin|6|bin|1000.0\n"
            "smaller objects\u2026|/data|1||-\n"
            "tiny.c|/data/tiny.c|8|c|1000.0\n"
            "Tiny.h|/data/Tiny.h|8|h|1000.0\n"
            "hidden space\u2026|/data|1||-");
  auto metadata = ScanStore::metadataAt(file);
  ASSERT_TRUE(metadata && metadata->scanDate);
  EXPECT_EQ(std::tuple(metadata->schemaVersion, metadata->sourceFingerprint, metadata->locationPath,
                       *metadata->scanDate, metadata->logicalSize),
            std::tuple(int64_t{3}, 0xfedcba9876543210ull, std::string("/data"), 1700000000.0,
                       uint64_t{1000}));
  // Read back, the date of 1970 stays a date.
  ASSERT_EQ(ScanStore::open(file)->nodeAtPath("/data/docs/a_b")->modificationDate(), 0.0);
  // A root without scan date or item count gets the time of writing and the rows written.
  root->setScanDate(0);
  root->setSourceItemCount(0);
  const double before = static_cast<double>(time(nullptr));
  ASSERT_TRUE(ScanStore::writeRootNode(root.get(), tree.path("other.sqlite")));
  metadata = ScanStore::metadataAt(tree.path("other.sqlite"));
  ASSERT_TRUE(metadata && metadata->scanDate);
  EXPECT_GE(*metadata->scanDate, before - 1);
  EXPECT_LE(*metadata->scanDate, before + 60);
  EXPECT_EQ(metadata->sourceItemCount, 11);
}

TEST_F(FormatTest, CleanupKindsInRuleOrderWhenWrittenAndWhenUpgradingVersion1And2Files) {
  // The upgrade keeps its own rules: Linux cache and temporary folders stay unclassified there,
  // and it classifies empty rows too.
  // (path below "/", folder, size, kind written, kind after an upgrade)
  const std::vector<std::tuple<const char*, bool, uint64_t, const char*, const char*>> cases = {
      {"Users/u/Library/Caches/.DS_Store", false, 10, "ds_store", "ds_store"},
      {"Users/u/Library/Caches/.DS_Store.d", true, 10, "cache", "cache"},
      {"Users/u/Library/Application Support/MobileSync/Backup/b", false, 10, "mobile_backup",
       "mobile_backup"},
      {"Users/u/Library/Developer/Xcode/Archives/a", false, 10, "xcode_archive", "xcode_archive"},
      {"Users/u/Library/Developer/Xcode/DerivedData/d", false, 10, "derived_data", "derived_data"},
      {"Users/u/Library/Developer/Xcode/iOS DeviceSupport/s", false, 10, "device_support",
       "device_support"},
      {"Users/u/Library/Caches/c.zip", false, 10, "cache", "cache"},
      {"home/u/.cache/thumbnails/t.png", false, 10, "cache", nullptr},
      {"home/u/.cache/x/Library/Logs/l", false, 10, "cache", "log"},
      {"Users/u/Library/Logs/l", false, 10, "log", "log"},
      {"private/tmp/t", false, 10, "temporary", "temporary"},
      {"private/var/tmp/t", false, 10, "temporary", "temporary"},
      {"tmp/t", false, 10, "temporary", nullptr},
      {"srv/tmp/t", false, 10, nullptr, nullptr},
      {"home/u/Downloads/X.ZIP", false, 10, "archive", "archive"},
      {"home/u/Downloads/folder.zip", true, 10, "download", "download"},
      {"home/u/Downloads/movie.mkv", false, 10, "download", "download"},
      {"home/u/Downloads/empty.txt", false, 0, nullptr, "download"},
      {"home/u/pkg.tar.GZ", false, 10, "archive", "archive"},
      {"home/u/.bashrc", false, 10, nullptr, nullptr},
  };
  ScanNodeRef root = ScanNode::makeRoot("/", true);
  for (const auto& [path, directory, size, written, upgraded] : cases)
    test::addPath(root.get(), path, directory, size);
  ScanNode* cacheFolder = test::addPath(root.get(), "Users/u/Library/Caches/x/keep", false, 10);
  test::addNode(cacheFolder->parent(), kSmallerObjectsName, true, 10)->setAggregate(true);
  test::addNode(cacheFolder->parent(), kHiddenSpaceName, false, 10)->setVirtualNode(true);
  auto expectKinds = [&](bool upgraded) {
    Sql sql(file);
    for (const auto& [path, directory, size, written, afterUpgrade] : cases) {
      const char* kind = upgraded ? afterUpgrade : written;
      EXPECT_EQ(sql.text("SELECT cleanup_kind FROM items WHERE path='/" + std::string(path) + "'")
                    .value_or("-"),
                kind ? kind : "-")
          << path;
    }
  };
  ASSERT_TRUE(ScanStore::writeRootNode(root.get(), file));
  expectKinds(false);
  Sql sql(file);
  EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM items WHERE (is_aggregate=1 OR is_virtual=1) AND "
                        "cleanup_kind IS NOT NULL"),
            0);
  EXPECT_EQ(sql.text("SELECT group_concat(extension, ' ') FROM items WHERE name IN "
                     "('.bashrc','pkg.tar.GZ','folder.zip','X.ZIP') ORDER BY id"),
            "zip  gz ");
  for (auto [schemaVersion, userVersion] : {std::pair{1, 0}, {1, 1}, {2, 2}}) {
    SCOPED_TRACE("schema " + std::to_string(schemaVersion) + ", user version " +
                 std::to_string(userVersion));
    ASSERT_TRUE(ScanStore::writeRootNode(root.get(), file));
    const auto rows = Sql(file).integer("SELECT COUNT(*) FROM items");
    downgrade(file, schemaVersion, userVersion);
    Error error;
    auto store = ScanStore::open(file, &error);
    ASSERT_TRUE(store) << error.description;
    EXPECT_EQ(store->rootNodeID(), 1);
    ASSERT_TRUE(store->rootNode());
    store.reset();
    // Both version marks, every row kept and not deleted, the issues table and the new index.
    EXPECT_EQ(
        Sql(file).text("SELECT (SELECT user_version FROM pragma_user_version)||'|'||"
                       "schema_version||'|'||(SELECT COUNT(*) FROM items WHERE is_deleted=0)"
                       "||'|'||(SELECT COUNT(*) FROM scan_issues)||'|'||(SELECT COUNT(*) "
                       "FROM sqlite_master WHERE name='items_cleanup_idx') FROM scan_metadata"),
        "3|3|" + std::to_string(*rows) + "|0|1");
    expectKinds(true);
    const std::string once = test::readFile(file);
    ASSERT_TRUE(ScanStore::open(file));
    EXPECT_EQ(test::readFile(file), once);
  }
}

TEST_F(FormatTest, FailedUpgradeStepIsRolledBackAndEarlierStepsKept) {
  ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), file));
  downgrade(file, 1, 1);
  Sql(file).exec("ALTER TABLE items ADD COLUMN cleanup_kind TEXT");  // the 2 -> 3 step fails
  Error error;
  EXPECT_FALSE(ScanStore::open(file, &error));
  EXPECT_EQ(error, (Error{kSQLiteErrorDomain, SQLITE_ERROR,
                          "Open scan database: duplicate column name: cleanup_kind"}));
  // Version 2 both marks, without the columns of the failed step and with no kinds filled in.
  EXPECT_EQ(Sql(file).text("SELECT (SELECT user_version FROM pragma_user_version)||'|'||"
                           "schema_version||'|'||(SELECT COUNT(*) FROM pragma_table_info('items') "
                           "WHERE name='checksum_size')||'|'||(SELECT COUNT(*) FROM items WHERE "
                           "cleanup_kind IS NOT NULL) FROM scan_metadata"),
            "2|2|0|0");
}

TEST_F(FormatTest, FilesThatCannotBeReadAreRefusedWithTheirReasonAndLeftUntouched) {
  // A large file cut to `keep` bytes (half of it when 0).
  auto cut = [&](std::size_t keep) {
    ScanNodeRef root = ScanNode::makeRoot("/big", true);
    for (int i = 0; i < 5000; ++i) test::addNode(root.get(), "file " + std::to_string(i), false, 1);
    ASSERT_TRUE(ScanStore::writeRootNode(root.get(), file));
    const std::string whole = test::readFile(file);
    test::writeFile(file, whole.substr(0, keep ? keep : whole.size() / 2));
  };
  const Error malformed{kSQLiteErrorDomain, SQLITE_CORRUPT,
                        "Open scan database: database disk image is malformed"};
  const Error noMetadata{kSQLiteErrorDomain, SQLITE_DONE,
                         "Read scan metadata: no more rows available"};
  const Error notADatabase{kSQLiteErrorDomain, SQLITE_NOTADB,
                           "Open scan database: file is not a database"};
  // (what, SQL run on the sample file or another change, the error of opening it)
  const std::vector<std::tuple<const char*, std::function<void()>, Error>> cases = {
      {"newer",
       [&] { Sql(file).exec("PRAGMA user_version=7"); },
       {kSQLiteErrorDomain, 17, "This scan database was created by a newer version of Tarnwell."}},
      {"metadata disagrees",
       [&] { Sql(file).exec("UPDATE scan_metadata SET schema_version=2"); },
       {kSQLiteErrorDomain, 17, "Unsupported scan database schema 2."}},
      {"no metadata row", [&] { Sql(file).exec("DELETE FROM scan_metadata"); }, noMetadata},
      {"version 0 with metadata of version 5", [&] { downgrade(file, 5, 0); }, notADatabase},
      {"version 0 without scan tables",
       [&] { Sql(file).exec("PRAGMA user_version=0; DROP TABLE scan_metadata"); },
       {kSQLiteErrorDomain, SQLITE_ERROR, "Open scan database: no such table: scan_metadata"}},
      {"not SQLite", [&] { test::writeFile(file, std::string(4096, 'x')); }, notADatabase},
      {"missing",
       [&] { unlink(file.c_str()); },
       {kSQLiteErrorDomain, SQLITE_CANTOPEN, "Open scan database: unable to open database file"}},
      {"cut in half", [&] { cut(0); }, malformed},
      {"cut to three pages", [&] { cut(4096 * 3); }, malformed},
  };
  for (const auto& [what, prepare, expected] : cases) {
    SCOPED_TRACE(what);
    ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), file));
    prepare();
    struct stat before {};
    struct stat after {};
    stat(file.c_str(), &before);
    const std::string bytes = test::readFile(file);
    const auto listing = test::listFolder(tree.root());
    Error error;
    EXPECT_FALSE(ScanStore::open(file, &error));
    EXPECT_EQ(error, expected);
    EXPECT_EQ(test::readFile(file), bytes);
    EXPECT_EQ(test::listFolder(tree.root()), listing);
    stat(file.c_str(), &after);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  }
  Error error;
  EXPECT_FALSE(ScanStore::metadataAt(file, &error));  // the truncated file
  test::writeFile(file, std::string(4096, 'x'));
  EXPECT_FALSE(ScanStore::metadataAt(file, &error));
  EXPECT_EQ(error, (Error{kSQLiteErrorDomain, SQLITE_NOTADB,
                          "Read scan metadata: file is not a database"}));
  ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), file));
  Sql(file).exec("DELETE FROM scan_metadata");
  EXPECT_FALSE(ScanStore::metadataAt(file, &error));
  EXPECT_EQ(error, noMetadata);
}

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
        EXPECT_TRUE(n > 1 || error == firstError) << error.description;
      }
      test::writeFile(file, oldBytes);
      if (fault.injected == 0) break;
      ASSERT_LT(n, 10000);
    }
    EXPECT_EQ(failures > 0, firstError.has_value());
  }
}

TEST_F(WriteAtomicityTest, RacingWritersOneCompleteFileReaderKeepsItsOwnModeKeptFoldersMade) {
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
  // Missing folders are created, a replaced file keeps its mode, bad targets fail.
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
