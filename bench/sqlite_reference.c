/* The yardstick for writing a scan database: a plain C program that inserts the same rows into
 * the same schema with the same connection settings, one reused prepared statement inside one
 * transaction, then builds the same indexes and flushes the file to disk. Tarnwell's writer must
 * stay within 1.25 times its time.
 *
 * usage: sqlite_reference SOURCE.sqlite DEST.sqlite
 * SOURCE is a scan database written by Tarnwell; its rows are read into memory first (not timed).
 * Prints one JSON line: {"rows":N,"reference_s":S}. */
#include <fcntl.h>
#include <sqlite3.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

typedef struct {
  int64_t parent, size, cloneShared;
  int flags[7];
  double date;
  int hasDate;
  char *name, *path, *extension, *kind;
  int nameLen, pathLen, extensionLen, kindLen;
} Row;

static const char* kPragmas =
    "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA temp_store=MEMORY; PRAGMA "
    "user_version=3;";
static const char* kTables =
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
static const char* kInsert =
    "INSERT INTO items(parent_id,name,path,size,is_directory,is_package,is_aggregate,is_volume_"
    "root,is_virtual,is_apfs_clone,clone_allocation_elsewhere,clone_shared_size,modification_date,"
    "extension,cleanup_kind) VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
static const char* kIndexes =
    "CREATE INDEX items_parent_idx ON items(parent_id); CREATE INDEX items_size_idx ON items(size "
    "DESC); CREATE INDEX items_path_idx ON items(path); CREATE INDEX items_extension_idx ON "
    "items(extension); CREATE INDEX items_duplicate_idx ON items(size, checksum); CREATE INDEX "
    "items_cleanup_idx ON items(cleanup_kind,modification_date,size DESC) WHERE is_deleted=0; "
    "PRAGMA optimize;";

static char* copyText(sqlite3_stmt* s, int column, int* length) {
  const unsigned char* text = sqlite3_column_text(s, column);
  *length = sqlite3_column_bytes(s, column);
  if (!text) return NULL;
  char* copy = malloc((size_t)*length + 1);
  memcpy(copy, text, (size_t)*length + 1);
  return copy;
}

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec + t.tv_nsec / 1e9;
}

static void check(int rc, sqlite3* db, const char* what) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE) {
    fprintf(stderr, "sqlite_reference: %s: %s\n", what, sqlite3_errmsg(db));
    exit(1);
  }
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: sqlite_reference SOURCE.sqlite DEST.sqlite\n");
    return 2;
  }
  sqlite3* src = NULL;
  check(sqlite3_open_v2(argv[1], &src, SQLITE_OPEN_READONLY, NULL), src, "open source");
  sqlite3_stmt* read = NULL;
  check(sqlite3_prepare_v2(src,
                           "SELECT parent_id,name,path,size,is_directory,is_package,is_aggregate,"
                           "is_volume_root,is_virtual,is_apfs_clone,clone_allocation_elsewhere,"
                           "clone_shared_size,modification_date,extension,cleanup_kind FROM items "
                           "ORDER BY id",
                           -1, &read, NULL),
        src, "read source");
  size_t count = 0, capacity = 1024;
  Row* rows = malloc(capacity * sizeof(Row));
  while (sqlite3_step(read) == SQLITE_ROW) {
    if (count == capacity) rows = realloc(rows, (capacity *= 2) * sizeof(Row));
    Row* r = &rows[count++];
    r->parent = sqlite3_column_int64(read, 0);
    r->name = copyText(read, 1, &r->nameLen);
    r->path = copyText(read, 2, &r->pathLen);
    r->size = sqlite3_column_int64(read, 3);
    for (int f = 0; f < 7; ++f) r->flags[f] = sqlite3_column_int(read, 4 + f);
    r->cloneShared = sqlite3_column_int64(read, 11);
    r->hasDate = sqlite3_column_type(read, 12) != SQLITE_NULL;
    r->date = sqlite3_column_double(read, 12);
    r->extension = copyText(read, 13, &r->extensionLen);
    r->kind = copyText(read, 14, &r->kindLen);
  }
  sqlite3_finalize(read);
  sqlite3_close(src);

  unlink(argv[2]);
  sync();
  const double start = now();
  sqlite3* db = NULL;
  check(sqlite3_open_v2(argv[2], &db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, NULL),
        db, "open");
  sqlite3_busy_timeout(db, 3000);
  check(sqlite3_exec(db, kPragmas, NULL, NULL, NULL), db, "pragmas");
  check(sqlite3_exec(db, kTables, NULL, NULL, NULL), db, "tables");
  check(sqlite3_exec(db, "BEGIN IMMEDIATE;", NULL, NULL, NULL), db, "begin");
  sqlite3_stmt* insert = NULL;
  check(sqlite3_prepare_v2(db, kInsert, -1, &insert, NULL), db, "prepare");
  for (size_t i = 0; i < count; ++i) {
    const Row* r = &rows[i];
    sqlite3_reset(insert);
    sqlite3_clear_bindings(insert);
    if (r->parent > 0) sqlite3_bind_int64(insert, 1, r->parent);
    sqlite3_bind_text(insert, 2, r->name, r->nameLen, SQLITE_STATIC);
    sqlite3_bind_text(insert, 3, r->path, r->pathLen, SQLITE_STATIC);
    sqlite3_bind_int64(insert, 4, r->size);
    for (int f = 0; f < 7; ++f) sqlite3_bind_int(insert, 5 + f, r->flags[f]);
    sqlite3_bind_int64(insert, 12, r->cloneShared);
    if (r->hasDate) sqlite3_bind_double(insert, 13, r->date);
    sqlite3_bind_text(insert, 14, r->extension ? r->extension : "", r->extensionLen, SQLITE_STATIC);
    if (r->kind) sqlite3_bind_text(insert, 15, r->kind, r->kindLen, SQLITE_STATIC);
    check(sqlite3_step(insert), db, "insert");
  }
  sqlite3_finalize(insert);
  check(sqlite3_exec(db, "INSERT INTO scan_metadata VALUES(1,3,0,1,'/','/',0,0,0,0,0,0)", NULL,
                     NULL, NULL),
        db, "metadata");
  check(sqlite3_exec(db, "COMMIT;", NULL, NULL, NULL), db, "commit");
  check(sqlite3_exec(db, kIndexes, NULL, NULL, NULL), db, "indexes");
  check(sqlite3_close(db), NULL, "close");
  int fd = open(argv[2], O_RDONLY);
  if (fd < 0 || fsync(fd) != 0) {
    perror("sqlite_reference: fsync");
    return 1;
  }
  close(fd);
  const double seconds = now() - start;
  printf("{\"rows\":%zu,\"reference_s\":%.6f}\n", count, seconds);
  return 0;
}
