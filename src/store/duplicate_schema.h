// The statements of the duplicate search: its candidates, the checksums it keeps in the items
// table, and the groups those checksums prove. Like every statement of the file format they are
// shared with files written by earlier versions; change none without a new schema version.
#pragma once

namespace tw::schema {

// Files below parameter 1 that share their allocated size with another such file, largest first.
// Clones charged elsewhere share their blocks already and never take part.
inline constexpr const char* kDuplicateCandidates =
    "WITH RECURSIVE subtree(id) AS (SELECT ? UNION ALL SELECT i.id FROM items i JOIN subtree s "
    "ON i.parent_id=s.id WHERE i.is_deleted=0)"
    ", repeated(size) AS (SELECT i.size FROM items i JOIN subtree s ON i.id=s.id WHERE "
    "i.is_deleted=0 AND i.is_directory=0 AND i.is_virtual=0 AND i.is_aggregate=0 AND "
    "i.clone_allocation_elsewhere=0 AND i.size>0 GROUP BY i.size HAVING COUNT(*)>1) SELECT "
    "i.id,i.path,i.size,i.modification_date,i.checksum IS NOT NULL,i.checksum_size,i.checksum_"
    "modification_date FROM items i JOIN subtree s ON i.id=s.id JOIN repeated r ON r.size=i.size "
    "WHERE i.is_deleted=0 AND i.is_directory=0 AND i.clone_allocation_elsewhere=0 ORDER BY i.size "
    "DESC";

// The groups the stored checksums prove: node columns and the checksum in hexadecimal, at most
// 500 rows, largest first, then by path.
inline constexpr const char* kDuplicateGroups =
    "WITH RECURSIVE subtree(id) AS (SELECT ? UNION ALL SELECT i.id FROM items i JOIN subtree s "
    "ON i.parent_id=s.id WHERE i.is_deleted=0)"
    ", groups(size,checksum) AS (SELECT i.size,i.checksum FROM items i JOIN subtree s ON "
    "i.id=s.id WHERE i.is_deleted=0 AND i.checksum IS NOT NULL GROUP BY i.size,i.checksum HAVING "
    "COUNT(*)>1) SELECT "
    "i.id,i.parent_id,i.name,i.path,i.size,i.is_directory,i.is_package,i.is_aggregate,i.is_volume_"
    "root,i.is_virtual,i.is_apfs_clone,i.clone_allocation_elsewhere,i.clone_shared_size,i."
    "modification_date,hex(i.checksum) FROM items i JOIN subtree s ON i.id=s.id JOIN groups g ON "
    "g.size=i.size AND g.checksum=i.checksum WHERE i.is_deleted=0 AND i.size>0 ORDER BY i.size "
    "DESC,i.path COLLATE NOCASE LIMIT 500";
inline constexpr int kDuplicateGroupsLimit = 500;

// The checksum stored for a row.
inline constexpr const char* kReadChecksum = "SELECT checksum FROM items WHERE id=?";

// One listed member, by row.
inline constexpr const char* kDuplicateMember =
    "SELECT id,parent_id,name,path,size,is_directory,is_package,is_aggregate,is_volume_root,is_"
    "virtual,is_apfs_clone,clone_allocation_elsewhere,clone_shared_size,modification_date FROM "
    "items WHERE id=?";

inline constexpr const char* kClearChecksum =
    "UPDATE items SET checksum=NULL,checksum_size=NULL,checksum_modification_date=NULL WHERE id=?";
inline constexpr const char* kStoreChecksum =
    "UPDATE items SET checksum=?,checksum_size=?,checksum_modification_date=? WHERE id=?";
inline constexpr const char* kBeginBatch = "BEGIN IMMEDIATE";
inline constexpr const char* kCommitBatch = "COMMIT";
inline constexpr const char* kRollbackBatch = "ROLLBACK";

namespace label {
inline constexpr const char* kReadDuplicateGroups = "Read duplicate groups";
inline constexpr const char* kPrepareDuplicateGroups = "Prepare duplicate groups query";
inline constexpr const char* kFindCandidates = "Find duplicate candidates";
inline constexpr const char* kReadCandidates = "Read duplicate candidates";
}  // namespace label

}  // namespace tw::schema
