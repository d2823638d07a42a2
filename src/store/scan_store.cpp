// Opening a scan database: the version check, the in-place upgrades of version 1 and 2 files and
// the metadata row.
#include "store/scan_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "store/schema.h"
#include "store/sqlite_statement.h"

namespace tw {

namespace {

// PRAGMA user_version, or 0 when it cannot be read.
int64_t readUserVersion(sqlite3* db) {
  Statement pragma(db, schema::kReadUserVersion);
  if (!pragma.valid() || pragma.step() != SQLITE_ROW) return 0;
  return pragma.columnInt(0);
}

// A file cut short still has a header promising more pages than it holds. SQLite would only
// notice when a query reaches the missing pages, so check once up front.
bool looksTruncated(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char header[100];
  struct stat st {};
  const bool read = ::pread(fd, header, sizeof header, 0) == sizeof header && ::fstat(fd, &st) == 0;
  ::close(fd);
  if (!read || std::memcmp(header, "SQLite format 3", 16) != 0) return false;
  uint32_t pageSize = (header[16] << 8) | header[17];
  if (pageSize == 1) pageSize = 65536;
  const uint32_t pages = (uint32_t{header[28]} << 24) | (uint32_t{header[29]} << 16) |
                         (uint32_t{header[30]} << 8) | header[31];
  const uint32_t changeCounter = (uint32_t{header[24]} << 24) | (uint32_t{header[25]} << 16) |
                                 (uint32_t{header[26]} << 8) | header[27];
  const uint32_t validFor = (uint32_t{header[92]} << 24) | (uint32_t{header[93]} << 16) |
                            (uint32_t{header[94]} << 8) | header[95];
  // The page count in the header is only meaningful when it was written with the current change
  // counter; otherwise SQLite goes by the file's size.
  if (pages == 0 || changeCounter != validFor) return false;
  return static_cast<uint64_t>(pages) * pageSize > static_cast<uint64_t>(st.st_size);
}

// The metadata row, or the connection's error read while the statement still holds it (after
// finalizing, SQLite reports "not an error").
std::optional<Error> readMetadataRow(sqlite3* db, ScanMetadata& out) {
  Statement select(db, schema::kReadMetadata);
  if (!select.valid() || select.step() != SQLITE_ROW)
    return sqliteError(db, schema::label::kReadMetadata);
  out.schemaVersion = select.columnInt(0);
  if (!select.columnIsNull(1)) out.scanDate = select.columnDouble(1);
  out.rootNodeID = select.columnInt(2);
  out.locationPath = select.columnText(3);
  out.locationName = select.columnText(4);
  out.logicalSize = static_cast<uint64_t>(select.columnInt(5));
  out.volumeCapacity = static_cast<uint64_t>(select.columnInt(6));
  out.volumeFreeSpace = static_cast<uint64_t>(select.columnInt(7));
  out.volumeAvailableSpace = static_cast<uint64_t>(select.columnInt(8));
  out.sourceFingerprint = static_cast<uint64_t>(select.columnInt(9));
  out.sourceItemCount = select.columnInt(10);
  return std::nullopt;
}

// Runs one upgrade step as a whole: on failure it is rolled back and the file stays as it was.
std::optional<Error> migrate(sqlite3* db, const char* script) {
  if (execScript(db, script)) return std::nullopt;
  Error error = sqliteError(db, schema::label::kOpen);
  sqlite3_exec(db, schema::kRollbackMigration, nullptr, nullptr, nullptr);
  return error;
}

// The version check and upgrades; fills `metadata` from the upgraded file.
std::optional<Error> checkAndUpgrade(sqlite3* db, ScanMetadata& metadata) {
  int64_t version = readUserVersion(db);
  if (version >= 4) {
    return Error{kSQLiteErrorDomain, schema::kVersionErrorCode, schema::kNewerVersionMessage};
  }
  if (version <= 0) {
    Statement select(db, schema::kReadSchemaVersion);
    if (!select.valid()) return sqliteError(db, schema::label::kOpen);
    const int step = select.step();
    if (step != SQLITE_ROW) {
      if (step == SQLITE_DONE) return sqliteErrorForCode(SQLITE_NOTADB, schema::label::kOpen);
      return sqliteError(db, schema::label::kOpen);
    }
    if (select.columnInt(0) != 1) return sqliteErrorForCode(SQLITE_NOTADB, schema::label::kOpen);
    select.finalize();
    if (!execScript(db, schema::kMarkVersion1)) return sqliteError(db, schema::label::kOpen);
    version = 1;
  }
  if (version == 1) {
    if (auto error = migrate(db, schema::kMigrate1To2)) return error;
    version = 2;
  }
  if (version == 2) {
    if (auto error = migrate(db, schema::kMigrate2To3)) return error;
  }
  if (auto error = readMetadataRow(db, metadata)) return error;
  if (metadata.schemaVersion != schema::kCurrentVersion) {
    char text[96];
    std::snprintf(text, sizeof text, schema::kUnsupportedSchemaFormat,
                  static_cast<long>(metadata.schemaVersion));
    return Error{kSQLiteErrorDomain, schema::kVersionErrorCode, text};
  }
  return std::nullopt;
}

}  // namespace

ScanStore::ScanStore(std::string path, sqlite3* db) : path_(std::move(path)), db_(db) {}

ScanStore::~ScanStore() {
  childrenStatement_.finalize();
  sqlite3_close_v2(db_);
}

std::shared_ptr<ScanStore> ScanStore::open(const std::string& path, Error* error) {
  sqlite3* db = nullptr;
  const int opened =
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
  std::optional<Error> failure;
  ScanMetadata metadata;
  if (opened != SQLITE_OK) {
    failure = sqliteError(db, schema::label::kOpen);
  } else {
    sqlite3_busy_timeout(db, schema::kBusyTimeoutMilliseconds);
    if (looksTruncated(path)) {
      failure = sqliteErrorForCode(SQLITE_CORRUPT, schema::label::kOpen);
    } else {
      failure = checkAndUpgrade(db, metadata);
    }
  }
  if (failure) {
    sqlite3_close_v2(db);
    if (error) *error = *failure;
    return nullptr;
  }
  std::shared_ptr<ScanStore> store(new ScanStore(path, db));
  store->rootNodeID_ = metadata.rootNodeID;
  return store;
}

std::optional<ScanMetadata> ScanStore::metadataAt(const std::string& path, Error* error) {
  sqlite3* db = nullptr;
  std::optional<ScanMetadata> result;
  std::optional<Error> failure;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_FULLMUTEX, nullptr) ==
      SQLITE_OK) {
    sqlite3_busy_timeout(db, schema::kBusyTimeoutMilliseconds);
    ScanMetadata metadata;
    failure = readMetadataRow(db, metadata);
    if (!failure) result = std::move(metadata);
  } else {
    failure = sqliteError(db, schema::label::kReadMetadata);
  }
  if (failure && error) *error = *failure;
  sqlite3_close_v2(db);
  return result;
}

std::optional<Error> ScanStore::lastReadError() const {
  std::lock_guard guard(lock_);
  return lastReadError_;
}

}  // namespace tw
