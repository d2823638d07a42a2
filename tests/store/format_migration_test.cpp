// The file format: what a written file holds, the version check, and the upgrades of version 1
// and 2 files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "store/scan_store.h"
#include "store/store_test_support.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

using test::Sql;

constexpr const char* kMetadataTable =
    "CREATE TABLE scan_metadata (id INTEGER PRIMARY KEY CHECK(id=1), schema_version INTEGER NOT "
    "NULL, scan_date REAL, root_node_id INTEGER, root_path TEXT NOT NULL, root_name TEXT NOT NULL, "
    "logical_size INTEGER NOT NULL, volume_capacity INTEGER NOT NULL, volume_free_space INTEGER "
    "NOT "
    "NULL, volume_available_space INTEGER NOT NULL, source_fingerprint INTEGER NOT NULL, "
    "source_item_count INTEGER NOT NULL);";
constexpr const char* kVersion1Items =
    "CREATE TABLE items (id INTEGER PRIMARY KEY, parent_id INTEGER REFERENCES items(id), name TEXT "
    "NOT NULL, path TEXT NOT NULL, size INTEGER NOT NULL, is_directory INTEGER NOT NULL, "
    "is_package "
    "INTEGER NOT NULL, is_aggregate INTEGER NOT NULL, is_volume_root INTEGER NOT NULL, is_virtual "
    "INTEGER NOT NULL, is_apfs_clone INTEGER NOT NULL, clone_allocation_elsewhere INTEGER NOT "
    "NULL, "
    "clone_shared_size INTEGER NOT NULL, modification_date REAL, extension TEXT, checksum BLOB);";

struct LegacyRow {
  int64_t parent;  // 0 for the root
  std::string name;
  std::string path;
  bool directory;
  std::string extension;
};

// A file of schema version 1 or 2, as earlier releases wrote them.
void writeLegacyFile(const std::string& path, int schemaVersion, int userVersion,
                     const std::vector<LegacyRow>& rows) {
  Sql sql(path);
  sql.exec(kMetadataTable);
  sql.exec(kVersion1Items);
  if (schemaVersion >= 2)
    sql.exec("ALTER TABLE items ADD COLUMN is_deleted INTEGER NOT NULL DEFAULT 0;");
  for (const LegacyRow& row : rows) {
    char* insert = sqlite3_mprintf(
        "INSERT INTO items(parent_id,name,path,size,is_directory,is_package,is_aggregate,"
        "is_volume_root,is_virtual,is_apfs_clone,clone_allocation_elsewhere,clone_shared_size,"
        "modification_date,extension) VALUES(%s,%Q,%Q,20000000,%d,0,0,0,0,0,0,0,1000,%Q)",
        row.parent ? std::to_string(row.parent).c_str() : "NULL", row.name.c_str(),
        row.path.c_str(), row.directory ? 1 : 0, row.extension.c_str());
    sql.exec(insert);
    sqlite3_free(insert);
  }
  sql.exec("INSERT INTO scan_metadata VALUES(1," + std::to_string(schemaVersion) +
           ",1700000000,1,'/Users/u','u',20000000,0,0,0,5,7)");
  sql.exec("PRAGMA user_version=" + std::to_string(userVersion));
}

std::vector<LegacyRow> legacyRows() {
  return {
      {0, "u", "/Users/u", true, ""},
      {1, ".DS_Store", "/Users/u/Library/Caches/.DS_Store", false, ""},
      {1, "f", "/Users/u/Library/Application Support/MobileSync/Backup/f", false, ""},
      {1, "f", "/Users/u/Library/Developer/Xcode/Archives/f", false, ""},
      {1, "f", "/Users/u/Library/Developer/Xcode/DerivedData/f", false, ""},
      {1, "f", "/Users/u/Library/Developer/Xcode/iOS DeviceSupport/f", false, ""},
      {1, "f", "/Users/u/Library/Caches/f", false, ""},
      {1, "f", "/Users/u/Library/Logs/f", false, ""},
      {1, "f", "/private/tmp/f", false, ""},
      {1, "f", "/private/var/tmp/f", false, ""},
      {1, "X.ZIP", "/Users/u/Downloads/X.ZIP", false, "ZIP"},
      {1, "d.zip", "/Users/u/Downloads/d.zip", true, ""},
      {1, "g", "/Users/u/Downloads/g", false, ""},
      {1, "f", "/home/u/.cache/f", false, ""},
      {1, "f", "/tmp/f", false, ""},
      {1, "plain", "/Users/u/plain", false, ""},
  };
}

// Cleanup kinds in row order, "-" for NULL.
std::string cleanupKinds(const std::string& path) {
  return Sql(path)
      .text(
          "SELECT group_concat(k, ' ') FROM (SELECT COALESCE(cleanup_kind, '-') AS k FROM items "
          "ORDER BY id)")
      .value_or("");
}

const std::string kExpectedMigratedKinds =
    "- ds_store mobile_backup xcode_archive derived_data device_support cache log temporary "
    "temporary archive download download - - -";

class FormatTest : public ::testing::Test {
 protected:
  test::TempTree tree;
  std::string file = tree.path("scan.sqlite");
};

TEST_F(FormatTest, WrittenFileCarriesVersionMetadataIndexesAndRowsInPreOrder) {
  Error error;
  ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), file, &error))
      << error.description;
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
  // Synthetic entries carry their folder's path.
  EXPECT_EQ(sql.text("SELECT group_concat(r, '\n') FROM (SELECT name||'|'||path||'|'||"
                     "COALESCE(parent_id,'-')||'|'||extension AS r FROM items ORDER BY id)"),
            "data|/data|-|\n"
            "docs|/data/docs|1|\n"
            "Annual REPORT.pdf|/data/docs/Annual REPORT.pdf|2|pdf\n"
            "a_b|/data/docs/a_b|2|\n"
            "notes.txt|/data/docs/notes.txt|2|txt\n"
            "cache|/data/cache|1|\n"
            "big.bin|/data/cache/big.bin|6|bin\n"
            "smaller objects\u2026|/data|1|\n"
            "tiny.c|/data/tiny.c|8|c\n"
            "Tiny.h|/data/Tiny.h|8|h\n"
            "hidden space\u2026|/data|1|");

  auto metadata = ScanStore::metadataAt(file);
  ASSERT_TRUE(metadata);
  EXPECT_EQ(metadata->schemaVersion, 3);
  EXPECT_EQ(metadata->sourceFingerprint, 0xfedcba9876543210ull);
  EXPECT_EQ(metadata->locationPath, "/data");
  EXPECT_EQ(metadata->scanDate, 1700000000.0);
  EXPECT_EQ(metadata->logicalSize, 1000u);
}

TEST_F(FormatTest, MissingScanDateAndItemCountAreFilledInWhenWriting) {
  ScanNodeRef root = test::makeSampleTree();
  root->setScanDate(0);
  root->setSourceItemCount(0);
  const double before = static_cast<double>(time(nullptr));
  ASSERT_TRUE(ScanStore::writeRootNode(root.get(), file));
  auto metadata = ScanStore::metadataAt(file);
  ASSERT_TRUE(metadata && metadata->scanDate);
  EXPECT_GE(*metadata->scanDate, before - 1);
  EXPECT_LE(*metadata->scanDate, before + 60);
  EXPECT_EQ(metadata->sourceItemCount, 11);
}

TEST_F(FormatTest, WriterClassifiesCleanupKindsInRuleOrderWithLinuxLocations) {
  ScanNodeRef root = ScanNode::makeRoot("/", true);
  struct Case {
    const char* path;
    bool directory;
    uint64_t size;
    const char* kind;
  };
  const std::vector<Case> cases = {
      {"Users/u/Library/Caches/.DS_Store", false, 10, "ds_store"},
      {"Users/u/Library/Caches/.DS_Store.d", true, 10, "cache"},
      {"Users/u/Library/Application Support/MobileSync/Backup/b", false, 10, "mobile_backup"},
      {"Users/u/Library/Developer/Xcode/Archives/a", false, 10, "xcode_archive"},
      {"Users/u/Library/Developer/Xcode/DerivedData/d", false, 10, "derived_data"},
      {"Users/u/Library/Developer/Xcode/iOS DeviceSupport/s", false, 10, "device_support"},
      {"Users/u/Library/Caches/c.zip", false, 10, "cache"},
      {"home/u/.cache/thumbnails/t.png", false, 10, "cache"},
      {"home/u/.cache/x/Library/Logs/l", false, 10, "cache"},
      {"Users/u/Library/Logs/l", false, 10, "log"},
      {"private/tmp/t", false, 10, "temporary"},
      {"private/var/tmp/t", false, 10, "temporary"},
      {"tmp/t", false, 10, "temporary"},
      {"srv/tmp/t", false, 10, nullptr},
      {"home/u/Downloads/X.ZIP", false, 10, "archive"},
      {"home/u/Downloads/folder.zip", true, 10, "download"},
      {"home/u/Downloads/movie.mkv", false, 10, "download"},
      {"home/u/Downloads/empty.txt", false, 0, nullptr},
      {"home/u/pkg.tar.GZ", false, 10, "archive"},
      {"home/u/.bashrc", false, 10, nullptr},
  };
  for (const Case& c : cases) test::addPath(root.get(), c.path, c.directory, c.size);
  ScanNode* cacheFolder = test::addPath(root.get(), "Users/u/Library/Caches/x/keep", false, 10);
  ScanNode* group = test::addNode(cacheFolder->parent(), kSmallerObjectsName, true, 10);
  group->setAggregate(true);
  test::addNode(cacheFolder->parent(), kHiddenSpaceName, false, 10)->setVirtualNode(true);
  ASSERT_TRUE(ScanStore::writeRootNode(root.get(), file));

  Sql sql(file);
  for (const Case& c : cases) {
    const std::string path = std::string("/") + c.path;
    auto kind = sql.text("SELECT cleanup_kind FROM items WHERE path='" + path + "'");
    EXPECT_EQ(kind.value_or("NULL"), c.kind ? c.kind : "NULL") << path;
  }
  EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM items WHERE (is_aggregate=1 OR is_virtual=1) AND "
                        "cleanup_kind IS NOT NULL"),
            0);
  EXPECT_EQ(sql.text("SELECT extension FROM items WHERE name='.bashrc'"), "");
  EXPECT_EQ(sql.text("SELECT extension FROM items WHERE name='pkg.tar.GZ'"), "gz");
  EXPECT_EQ(sql.text("SELECT extension FROM items WHERE name='folder.zip'"), "");
}

TEST_F(FormatTest, Version1And2FilesAreUpgradedOnceToVersion3WithTheUpgradesCleanupKinds) {
  // The upgrade keeps its own rules: Linux cache and temporary folders stay unclassified there.
  for (auto [schemaVersion, userVersion] : {std::pair{1, 0}, {1, 1}, {2, 2}}) {
    SCOPED_TRACE("schema " + std::to_string(schemaVersion) + ", user version " +
                 std::to_string(userVersion));
    unlink(file.c_str());
    writeLegacyFile(file, schemaVersion, userVersion, legacyRows());
    Error error;
    auto store = ScanStore::open(file, &error);
    ASSERT_TRUE(store) << error.description;
    EXPECT_EQ(store->rootNodeID(), 1);
    ASSERT_TRUE(store->rootNode());
    EXPECT_EQ(store->rootNode()->children().size(), 15u);
    store.reset();
    {
      Sql sql(file);
      EXPECT_EQ(sql.integer("PRAGMA user_version"), 3);
      EXPECT_EQ(sql.integer("SELECT schema_version FROM scan_metadata"), 3);
      EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM items WHERE is_deleted=0"), 16);
      EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM scan_issues"), 0);
      EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM sqlite_master WHERE name='items_cleanup_idx'"),
                1);
    }
    EXPECT_EQ(cleanupKinds(file), kExpectedMigratedKinds);
    const std::string once = test::readFile(file);
    ASSERT_TRUE(ScanStore::open(file));
    EXPECT_EQ(test::readFile(file), once);
  }
}

TEST_F(FormatTest, FailedUpgradeStepIsRolledBackAndEarlierStepsKept) {
  writeLegacyFile(file, 1, 1, legacyRows());
  {
    Sql sql(file);  // makes the 2 -> 3 step fail half-way
    sql.exec("ALTER TABLE items ADD COLUMN cleanup_kind TEXT");
  }
  Error error;
  EXPECT_FALSE(ScanStore::open(file, &error));
  EXPECT_EQ(error.domain, kSQLiteErrorDomain);
  EXPECT_EQ(error.code, SQLITE_ERROR);
  EXPECT_EQ(error.description, "Open scan database: duplicate column name: cleanup_kind");
  Sql sql(file);
  EXPECT_EQ(sql.integer("PRAGMA user_version"), 2);
  EXPECT_EQ(sql.integer("SELECT schema_version FROM scan_metadata"), 2);
  EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM pragma_table_info('items') WHERE "
                        "name='checksum_size'"),
            0);
  EXPECT_EQ(sql.integer("SELECT COUNT(*) FROM items WHERE cleanup_kind IS NOT NULL"), 0);
}

TEST_F(FormatTest, FilesThatCannotBeReadAreRefusedAndLeftUntouched) {
  auto sample = [&] { ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), file)); };
  auto large = [&] {
    ScanNodeRef root = ScanNode::makeRoot("/big", true);
    for (int i = 0; i < 5000; ++i)
      test::addNode(root.get(), "file number " + std::to_string(i), false, 4096);
    ASSERT_TRUE(ScanStore::writeRootNode(root.get(), file));
  };
  auto truncateTo = [&](std::size_t half, std::size_t bytes) {
    const std::string whole = test::readFile(file);
    test::writeFile(file, whole.substr(0, half ? whole.size() / 2 : bytes));
  };
  const Error malformed{kSQLiteErrorDomain, SQLITE_CORRUPT,
                        "Open scan database: database disk image is malformed"};
  struct Case {
    const char* what;
    std::function<void()> prepare;
    Error error;  // only the domain is checked when the description is empty
  };
  const std::vector<Case> cases = {
      {"newer",
       [&] { sample(), Sql(file).exec("PRAGMA user_version=7"); },
       {kSQLiteErrorDomain, 17, "This scan database was created by a newer version of Tarnwell."}},
      {"metadata disagrees",
       [&] { sample(), Sql(file).exec("UPDATE scan_metadata SET schema_version=2"); },
       {kSQLiteErrorDomain, 17, "Unsupported scan database schema 2."}},
      {"version 0 with metadata of version 5",
       [&] {
         Sql sql(file);
         sql.exec(kMetadataTable);
         sql.exec("INSERT INTO scan_metadata VALUES(1,5,0,1,'/','/',0,0,0,0,0,0)");
       },
       {kSQLiteErrorDomain, 0, ""}},
      {"no scan tables",
       [&] { Sql(file).exec("CREATE TABLE t(x)"); },
       {kSQLiteErrorDomain, SQLITE_ERROR, "Open scan database: no such table: scan_metadata"}},
      {"not SQLite",
       [&] { test::writeFile(file, std::string(4096, 'x')); },
       {kSQLiteErrorDomain, SQLITE_NOTADB, "Open scan database: file is not a database"}},
      {"missing",
       [] {},
       {kSQLiteErrorDomain, SQLITE_CANTOPEN, "Open scan database: unable to open database file"}},
      {"cut in half", [&] { large(), truncateTo(1, 0); }, malformed},
      {"cut to three pages", [&] { large(), truncateTo(0, 4096 * 3); }, malformed},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    unlink(file.c_str());
    c.prepare();
    struct stat before {};
    stat(file.c_str(), &before);
    const std::string bytes = test::readFile(file);
    const auto listing = test::listFolder(tree.root());
    Error error;
    EXPECT_FALSE(ScanStore::open(file, &error));
    if (c.error.description.empty()) {
      EXPECT_EQ(error.domain, c.error.domain);
    } else {
      EXPECT_EQ(error, c.error);
    }
    EXPECT_EQ(test::readFile(file), bytes);
    EXPECT_EQ(test::listFolder(tree.root()), listing);
    struct stat after {};
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
}

}  // namespace
}  // namespace tw
