// The scan database file format: every statement that creates, upgrades, fills or reads a scan
// database. These texts are part of the file format and of its compatibility with files written
// by earlier versions; change none of them without a new schema version.
#pragma once

namespace tw::schema {

// Version marks. PRAGMA user_version and scan_metadata.schema_version agree on this value.
inline constexpr int kCurrentVersion = 3;
// Code of the version errors.
inline constexpr int kVersionErrorCode = 17;
inline constexpr const char* kNewerVersionMessage =
    "This scan database was created by a newer version of Tarnwell.";
inline constexpr const char* kUnsupportedSchemaFormat = "Unsupported scan database schema %ld.";

// Connection settings of a file being written: it is private until it is moved into place whole,
// so journalling is deliberately off.
inline constexpr const char* kWriterPragmas =
    "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA temp_store=MEMORY; PRAGMA "
    "user_version=3;";
inline constexpr int kBusyTimeoutMilliseconds = 3000;

// Tables.
inline constexpr const char* kCreateTables =
    "CREATE TABLE scan_metadata (id INTEGER PRIMARY KEY CHECK(id=1), schema_version INTEGER NOT "
    "NULL, scan_date REAL, root_node_id INTEGER, root_path TEXT NOT NULL, root_name TEXT NOT NULL, "
    "logical_size INTEGER NOT NULL, volume_capacity INTEGER NOT NULL, volume_free_space INTEGER "
    "NOT "
    "NULL, volume_available_space INTEGER NOT NULL, source_fingerprint INTEGER NOT NULL, "
    "source_item_count INTEGER NOT NULL);"
    "CREATE TABLE items (id INTEGER PRIMARY KEY, parent_id INTEGER REFERENCES items(id), name TEXT "
    "NOT NULL, path TEXT NOT NULL, size INTEGER NOT NULL, is_directory INTEGER NOT NULL, "
    "is_package "
    "INTEGER NOT NULL, is_aggregate INTEGER NOT NULL, is_volume_root INTEGER NOT NULL, is_virtual "
    "INTEGER NOT NULL, is_apfs_clone INTEGER NOT NULL, clone_allocation_elsewhere INTEGER NOT "
    "NULL, "
    "clone_shared_size INTEGER NOT NULL, modification_date REAL, extension TEXT, checksum BLOB, "
    "is_deleted INTEGER NOT NULL DEFAULT 0, checksum_size INTEGER, checksum_modification_date "
    "REAL, "
    "cleanup_kind TEXT);"
    "CREATE TABLE scan_issues (id INTEGER PRIMARY KEY, path TEXT NOT NULL, message TEXT NOT NULL);";

// Indexes, built once after all rows are written.
inline constexpr const char* kCreateIndexes =
    "CREATE INDEX items_parent_idx ON items(parent_id); CREATE INDEX items_size_idx ON items(size "
    "DESC); CREATE INDEX items_path_idx ON items(path); CREATE INDEX items_extension_idx ON "
    "items(extension); CREATE INDEX items_duplicate_idx ON items(size, checksum); CREATE INDEX "
    "items_cleanup_idx ON items(cleanup_kind,modification_date,size DESC) WHERE is_deleted=0; "
    "PRAGMA optimize;";

// Writing.
inline constexpr const char* kBegin = "BEGIN IMMEDIATE;";
inline constexpr const char* kCommit = "COMMIT;";
inline constexpr const char* kRollback = "ROLLBACK;";
inline constexpr const char* kInsertItem =
    "INSERT INTO items(parent_id,name,path,size,is_directory,is_package,is_aggregate,is_volume_"
    "root,is_virtual,is_apfs_clone,clone_allocation_elsewhere,clone_shared_size,modification_date,"
    "extension,cleanup_kind) VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
inline constexpr const char* kInsertMetadata =
    "INSERT INTO scan_metadata VALUES(1,?,?,?,?,?,?,?,?,?,?,?)";
inline constexpr const char* kInsertIssue = "INSERT INTO scan_issues(path,message) VALUES(?,?)";
inline constexpr const char* kMissingIssueMessage = "Unable to read this item.";

// Opening and upgrading.
inline constexpr const char* kReadUserVersion = "PRAGMA user_version";
inline constexpr const char* kReadSchemaVersion =
    "SELECT schema_version FROM scan_metadata WHERE id=1";
inline constexpr const char* kMarkVersion1 = "PRAGMA user_version=1";
inline constexpr const char* kMigrate1To2 =
    "BEGIN IMMEDIATE; ALTER TABLE items ADD COLUMN is_deleted INTEGER NOT NULL DEFAULT 0; UPDATE "
    "scan_metadata SET schema_version=2 WHERE id=1; PRAGMA user_version=2; COMMIT;";
inline constexpr const char* kMigrate2To3 =
    "BEGIN IMMEDIATE;ALTER TABLE items ADD COLUMN checksum_size INTEGER;ALTER TABLE items ADD "
    "COLUMN "
    "checksum_modification_date REAL;ALTER TABLE items ADD COLUMN cleanup_kind TEXT;CREATE TABLE "
    "IF "
    "NOT EXISTS scan_issues (id INTEGER PRIMARY KEY, path TEXT NOT NULL, message TEXT NOT "
    "NULL);UPDATE items SET cleanup_kind=CASE WHEN is_directory=0 AND lower(name)='.ds_store' THEN "
    "'ds_store' WHEN lower(path) LIKE '%/library/application support/mobilesync/backup/%' THEN "
    "'mobile_backup' WHEN lower(path) LIKE '%/library/developer/xcode/archives/%' THEN "
    "'xcode_archive' WHEN lower(path) LIKE '%/library/developer/xcode/deriveddata/%' THEN "
    "'derived_data' WHEN lower(path) LIKE '%/library/developer/xcode/ios devicesupport/%' THEN "
    "'device_support' WHEN lower(path) LIKE '%/library/caches/%' THEN 'cache' WHEN lower(path) "
    "LIKE '%/library/logs/%' THEN 'log' WHEN lower(path) LIKE '/private/tmp/%' OR lower(path) LIKE "
    "'/private/var/tmp/%' THEN 'temporary' WHEN lower(extension) IN "
    "('dmg','pkg','zip','rar','7z','iso','tar','gz','xz') THEN 'archive' WHEN lower(path) LIKE "
    "'%/downloads/%' THEN 'download' END;CREATE INDEX IF NOT EXISTS items_cleanup_idx ON "
    "items(cleanup_kind,modification_date,size DESC) WHERE is_deleted=0;UPDATE scan_metadata SET "
    "schema_version=3 WHERE id=1;PRAGMA user_version=3; COMMIT;";
inline constexpr const char* kRollbackMigration = "ROLLBACK";

// Reading.
inline constexpr const char* kReadMetadata =
    "SELECT schema_version,scan_date,root_node_id,root_path,root_name,logical_size,volume_capacity,"
    "volume_free_space,volume_available_space,source_fingerprint,source_item_count FROM "
    "scan_metadata WHERE id=1";
inline constexpr const char* kReadIssues =
    "SELECT path,message FROM scan_issues ORDER BY id LIMIT 500";

// The fourteen columns of every node query, in this order.
#define TW_NODE_COLUMNS                                                                         \
  "id,parent_id,name,path,size,is_directory,is_package,is_aggregate,is_volume_root,is_virtual," \
  "is_apfs_clone,clone_allocation_elsewhere,clone_shared_size,modification_date"
#define TW_SUBTREE_NODE_COLUMNS                                                       \
  "i.id,i.parent_id,i.name,i.path,i.size,i.is_directory,i.is_package,i.is_aggregate," \
  "i.is_volume_root,i.is_virtual,i.is_apfs_clone,i.clone_allocation_elsewhere,"       \
  "i.clone_shared_size,i.modification_date"
// Every subtree query starts here; parameter 1 is the subtree's root row. Deleted rows and all
// rows below them are never reached.
#define TW_SUBTREE                                                                             \
  "WITH RECURSIVE subtree(id) AS (SELECT ? UNION ALL SELECT i.id FROM items i JOIN subtree s " \
  "ON i.parent_id=s.id WHERE i.is_deleted=0)"
#define TW_SUBTREE_NODES \
  TW_SUBTREE " SELECT " TW_SUBTREE_NODE_COLUMNS " FROM items i JOIN subtree s ON i.id=s.id WHERE "
#define TW_FILES \
  "i.is_deleted=0 AND i.is_directory=0 AND i.is_virtual=0 AND i.is_aggregate=0 AND i.size>0"

inline constexpr const char* kRootNode =
    "SELECT " TW_NODE_COLUMNS " FROM items WHERE id=? AND is_deleted=0";
inline constexpr const char* kNodeAtPath =
    "SELECT " TW_NODE_COLUMNS " FROM items WHERE path=? AND is_deleted=0 LIMIT 1";
// The child order with a plain case-insensitive name tie-break.
inline constexpr const char* kChildren =
    "SELECT " TW_NODE_COLUMNS
    " FROM items WHERE parent_id=? AND is_deleted=0 ORDER BY is_virtual,is_aggregate,size "
    "DESC,name COLLATE NOCASE";
inline constexpr const char* kAllNodes =
    TW_SUBTREE_NODES "i.is_deleted=0 ORDER BY length(i.path),i.path COLLATE NOCASE";
inline constexpr const char* kAllFiles =
    TW_SUBTREE_NODES TW_FILES " ORDER BY i.size DESC,i.name COLLATE NOCASE";
inline constexpr const char* kLargestFiles =
    TW_SUBTREE_NODES TW_FILES " ORDER BY i.size DESC,i.name COLLATE NOCASE LIMIT ?";
inline constexpr const char* kFilesMatchingName = TW_SUBTREE_NODES TW_FILES
    " AND i.name LIKE ? ESCAPE '\\' COLLATE NOCASE ORDER BY i.size DESC,i.name COLLATE NOCASE "
    "LIMIT ?";
inline constexpr const char* kCleanupCandidates = TW_SUBTREE_NODES
    "i.is_deleted=0 AND i.is_virtual=0 AND i.is_aggregate=0 AND i.size>0 AND i.cleanup_kind IS NOT "
    "NULL AND (i.cleanup_kind='ds_store' OR (i.size>=10485760 AND i.modification_date IS NOT NULL "
    "AND i.modification_date<?)) ORDER BY i.size DESC,i.path COLLATE NOCASE LIMIT ?";
// Cleanup candidates other than ".DS_Store" files must be older than this.
inline constexpr double kCleanupMinimumAgeSeconds = 604800;
inline constexpr const char* kExtensionSummary = TW_SUBTREE
    " SELECT lower(COALESCE(i.extension,'')),SUM(i.size),COUNT(*) FROM items i JOIN subtree s ON "
    "i.id=s.id WHERE " TW_FILES " GROUP BY lower(COALESCE(i.extension,''))";
// Files of a subtree filtered by extension: the head, then " AND lower(COALESCE(i.extension,''))
// IN (" or "NOT IN (" with one "?" per entry, ")", then the tail.
inline constexpr const char* kFilesByExtensionHead = TW_SUBTREE_NODES TW_FILES;
inline constexpr const char* kExtensionFilterFormat = " AND lower(COALESCE(i.extension,'')) %s (";
inline constexpr const char* kFilesByExtensionTail =
    " ORDER BY i.size DESC,i.name COLLATE NOCASE LIMIT ?";
inline constexpr const char* kStreamNodes = TW_SUBTREE_NODES "i.is_deleted=0 ORDER BY i.id";

// Deletion marks, inside one immediate transaction: a row's state, the flag on its whole subtree
// (deleted rows included, so a restore brings back items deleted earlier below it), and its size
// moved on every ancestor, never below 0. The metadata refresh ends the transaction.
inline constexpr const char* kBeginImmediate = "BEGIN IMMEDIATE";
inline constexpr const char* kRollbackMarks = "ROLLBACK";
inline constexpr const char* kMarkState = "SELECT size,is_deleted FROM items WHERE id=?";
inline constexpr const char* kMarkSubtree =
    "WITH RECURSIVE subtree(id) AS (SELECT ? UNION ALL SELECT i.id FROM items i JOIN subtree s ON "
    "i.parent_id=s.id) UPDATE items SET is_deleted=? WHERE id IN (SELECT id FROM subtree)";
inline constexpr const char* kMoveAncestorSizes =
    "WITH RECURSIVE ancestors(id) AS (SELECT parent_id FROM items WHERE id=? UNION ALL SELECT "
    "i.parent_id FROM items i JOIN ancestors a ON i.id=a.id WHERE a.id IS NOT NULL) UPDATE items "
    "SET size=MAX(0,size+?) WHERE id IN (SELECT id FROM ancestors WHERE id IS NOT NULL)";
inline constexpr const char* kRefreshMetadataAndCommit =
    "UPDATE scan_metadata SET logical_size=(SELECT size FROM items WHERE id=root_node_id), "
    "source_item_count=(SELECT COUNT(*) FROM items WHERE is_deleted=0); COMMIT";

#undef TW_NODE_COLUMNS
#undef TW_SUBTREE_NODE_COLUMNS
#undef TW_SUBTREE
#undef TW_SUBTREE_NODES
#undef TW_FILES

// Context labels of database errors.
namespace label {
inline constexpr const char* kCreate = "Create scan database";
inline constexpr const char* kWrite = "Write scan database";
inline constexpr const char* kOpen = "Open scan database";
inline constexpr const char* kReadMetadata = "Read scan metadata";
inline constexpr const char* kPrepareQuery = "Prepare scan query";
inline constexpr const char* kReadItems = "Read scan items";
inline constexpr const char* kReadIssues = "Read scan issues";
inline constexpr const char* kPrepareIssues = "Prepare scan issues query";
inline constexpr const char* kSummarize = "Summarize file types";
inline constexpr const char* kPrepareSummary = "Prepare file-type summary";
inline constexpr const char* kReadTypeFiles = "Read file-type files";
inline constexpr const char* kPrepareTypeFiles = "Prepare file-type files query";
inline constexpr const char* kStream = "Stream scan items";
inline constexpr const char* kMarkDeleted = "Update deletion marks";
}  // namespace label

}  // namespace tw::schema
