// Writing a scan database: the whole tree goes into a hidden file beside the destination, which is
// flushed to disk and renamed over the destination only when complete. A failure at any point
// leaves the previous file as it was and removes the hidden file.
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "platform/paths.h"
#include "store/cleanup_kind.h"
#include "store/private_file_vfs.h"
#include "store/scan_store.h"
#include "store/schema.h"
#include "store/sqlite_statement.h"

namespace tw {

namespace {

// A random (version 4) UUID string in upper case.
std::string newUUIDString() {
  unsigned char bytes[16] = {};
  std::size_t got = 0;
  while (got < sizeof bytes) {
    ssize_t n = getrandom(bytes + got, sizeof bytes - got, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      // No entropy source: fall back to the clock and the address space, still unique per call.
      auto now = std::chrono::steady_clock::now().time_since_epoch().count();
      static std::atomic<unsigned> counter{0};
      unsigned c = counter++;
      std::memcpy(bytes, &now, sizeof now);
      std::memcpy(bytes + 8, &c, sizeof c);
      pid_t pid = getpid();
      std::memcpy(bytes + 12, &pid, sizeof pid);
      break;
    }
    got += static_cast<std::size_t>(n);
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
  char text[37];
  std::snprintf(text, sizeof text,
                "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", bytes[0],
                bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8],
                bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
  return text;
}

double secondsSince1970Now() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

// Paths from the scanner are standardized already; only odd ones pay for standardizing.
bool needsStandardizing(std::string_view path) {
  if (path.size() > 1 && path.back() == '/') return true;
  return path.find("//") != std::string_view::npos || path.find("/.") != std::string_view::npos;
}

void appendLowercase(std::string& out, std::string_view text) {
  for (char c : text) out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
}

// Inserts the rows of one tree with one reused statement.
class RowWriter {
 public:
  RowWriter(sqlite3* db, Statement& insert) : db_(db), insert_(insert) {}

  // Inserts `node` below `parentRow` (0 for the root); returns the new row id or 0 on failure.
  int64_t insert(ScanNode* node, int64_t parentRow, std::string_view path) {
    insert_.resetAndClear();
    if (parentRow > 0) {
      insert_.bindInt(1, parentRow);
    } else {
      insert_.bindNull(1);
    }
    const std::string_view name = node->name();
    insert_.bindText(2, name);
    insert_.bindText(3, path);
    insert_.bindInt(4, static_cast<int64_t>(node->size()));
    insert_.bindInt(5, node->isDirectory());
    insert_.bindInt(6, node->isPackage());
    insert_.bindInt(7, node->isAggregate());
    insert_.bindInt(8, node->isVolumeRoot());
    insert_.bindInt(9, node->isVirtualNode());
    insert_.bindInt(10, node->isAPFSClone());
    insert_.bindInt(11, node->isCloneAllocationElsewhere());
    insert_.bindInt(12, static_cast<int64_t>(node->cloneSharedSize()));
    if (node->hasModificationDate()) {
      insert_.bindDouble(13, node->modificationDate());
    } else {
      insert_.bindNull(13);
    }
    extension_.clear();
    if (!node->isDirectory()) extension_ = fileExtension(name);
    insert_.bindText(14, extension_);
    if (!node->isVirtualNode() && !node->isAggregate() && node->size() > 0) {
      lowerPath_.clear();
      if (needsStandardizing(path)) {
        appendLowercase(lowerPath_, standardizePath(path));
      } else {
        appendLowercase(lowerPath_, path);
      }
      lowerName_.clear();
      appendLowercase(lowerName_, name);
      if (auto kind = cleanupKind(lowerPath_, lowerName_, extension_, node->isDirectory()))
        insert_.bindText(15, *kind);
    }
    if (insert_.step() != SQLITE_DONE) return 0;
    ++rows_;
    return sqlite3_last_insert_rowid(db_);
  }

  int64_t rows() const { return rows_; }

 private:
  sqlite3* db_;
  Statement& insert_;
  std::string extension_, lowerPath_, lowerName_;
  int64_t rows_ = 0;
};

// The child's path as ScanNode::path() would give it, from the parent's path already known.
void childPath(std::string& out, const ScanNode* child, std::string_view parentPath) {
  if (child->hasOwnPath()) {
    out = child->path();
    return;
  }
  out.assign(parentPath);
  if (child->isSynthetic()) return;
  if (out.empty() || out.back() != '/') out.push_back('/');
  out.append(child->name());
}

// Pre-order, children in list order, parents before children; returns the root's row id or 0.
int64_t insertTree(ScanNode* root, RowWriter& writer) {
  struct Frame {
    int64_t row;
    std::string path;
    std::span<ScanNode* const> children;
    std::size_t next = 0;
  };
  std::string rootPath = root->path();
  const int64_t rootRow = writer.insert(root, 0, rootPath);
  if (rootRow == 0) return 0;
  std::vector<Frame> stack;
  stack.push_back(Frame{rootRow, std::move(rootPath), root->children()});
  std::string path;
  while (!stack.empty()) {
    Frame& frame = stack.back();
    if (frame.next == frame.children.size()) {
      stack.pop_back();
      continue;
    }
    ScanNode* child = frame.children[frame.next++];
    childPath(path, child, frame.path);
    const int64_t row = writer.insert(child, frame.row, path);
    if (row == 0) return 0;
    std::span<ScanNode* const> grandchildren = child->children();
    if (!grandchildren.empty()) stack.push_back(Frame{row, path, grandchildren});
  }
  return rootRow;
}

// The inserts below read the connection's error while their statement is alive: finalizing it
// first would leave "not an error".
std::optional<Error> insertMetadata(sqlite3* db, ScanNode* root, int64_t rootRow, int64_t rows) {
  Statement meta(db, schema::kInsertMetadata);
  if (!meta.valid()) return sqliteError(db, schema::label::kWrite);
  const std::string rootPath = root->path();
  meta.bindInt(1, schema::kCurrentVersion);
  meta.bindDouble(2, root->scanDate() != 0 ? root->scanDate() : secondsSince1970Now());
  meta.bindInt(3, rootRow);
  meta.bindText(4, rootPath);
  meta.bindText(5, root->name());
  meta.bindInt(6, static_cast<int64_t>(root->size()));
  meta.bindInt(7, static_cast<int64_t>(root->volumeCapacity()));
  meta.bindInt(8, static_cast<int64_t>(root->volumeFreeSpace()));
  meta.bindInt(9, static_cast<int64_t>(root->volumeAvailableSpace()));
  meta.bindInt(10, static_cast<int64_t>(root->sourceFingerprint()));  // same bits, signed
  meta.bindInt(11, root->sourceItemCount() != 0 ? root->sourceItemCount() : rows);
  if (meta.step() != SQLITE_DONE) return sqliteError(db, schema::label::kWrite);
  return std::nullopt;
}

std::optional<Error> insertIssues(sqlite3* db, ScanNode* root) {
  const std::vector<ScanIssue>& issues = root->scanIssues();
  if (issues.empty()) return std::nullopt;
  Statement insert(db, schema::kInsertIssue);
  if (!insert.valid()) return sqliteError(db, schema::label::kWrite);
  for (const ScanIssue& issue : issues) {
    insert.resetAndClear();
    insert.bindText(1, issue.path);
    insert.bindText(2, issue.message.empty() ? std::string_view(schema::kMissingIssueMessage)
                                             : std::string_view(issue.message));
    if (insert.step() != SQLITE_DONE) return sqliteError(db, schema::label::kWrite);
  }
  return std::nullopt;
}

// Fills the database open on `db`; the error of the first failing step, if any.
std::optional<Error> fillDatabase(sqlite3* db, ScanNode* root) {
  auto failed = [db] { return sqliteError(db, schema::label::kWrite); };
  if (!execScript(db, schema::kWriterPragmas)) return failed();
  if (!execScript(db, schema::kCreateTables)) return failed();
  if (!execScript(db, schema::kBegin)) return failed();
  Statement insert(db, schema::kInsertItem);
  if (!insert.valid()) return failed();
  RowWriter writer(db, insert);
  const int64_t rootRow = insertTree(root, writer);
  if (rootRow == 0) return failed();
  if (auto error = insertMetadata(db, root, rootRow, writer.rows())) return error;
  if (auto error = insertIssues(db, root)) return error;
  insert.resetAndClear();
  if (!execScript(db, schema::kCommit)) return failed();
  if (!execScript(db, schema::kCreateIndexes)) return failed();
  return std::nullopt;
}

// Flushes the finished file and gives it the mode of the file it replaces.
bool flushFile(const FileSystemCalls& calls, const std::string& path, const struct stat* replaced,
               int* err) {
  int fd = calls.open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) {
    *err = errno;
    return false;
  }
  bool ok = true;
  if (replaced && ::fchmod(fd, replaced->st_mode & 07777) != 0) ok = false;
  if (ok && calls.fsync(fd) != 0) ok = false;
  if (!ok) *err = errno;
  ::close(fd);
  return ok;
}

// Makes the rename durable. The new file is already in place, so a failure here changes nothing
// the caller could act on and is not reported.
void flushFolder(const FileSystemCalls& calls, const std::string& folder) {
  int fd = calls.open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return;
  calls.fsync(fd);
  ::close(fd);
}

}  // namespace

bool ScanStore::writeRootNode(ScanNode* root, const std::string& path, Error* error) {
  return writeRootNode(root, path, FileSystemCalls::system(), error);
}

bool ScanStore::writeRootNode(ScanNode* root, const std::string& path, const FileSystemCalls& calls,
                              Error* error) {
  if (!root || path.empty() || path.front() != '/') return false;
  const std::string destination = standardizePath(path);
  const std::string folder = parentPath(destination);
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);

  // ".%@-%@.pending": hidden, beside the destination, unique per write.
  std::string pendingName(".");
  pendingName.append(displayNameForPath(destination));
  pendingName.push_back('-');
  pendingName.append(newUUIDString());
  pendingName.append(".pending");
  const std::string pending = appendPathComponent(folder, pendingName);
  calls.unlink(pending.c_str());

  PrivateFileCallsScope scope(calls);
  std::optional<Error> failure;
  sqlite3* db = nullptr;
  const int opened = sqlite3_open_v2(
      pending.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
      privateFileVfsName());
  if (opened != SQLITE_OK) {
    failure = sqliteError(db, schema::label::kCreate);
  } else {
    sqlite3_busy_timeout(db, schema::kBusyTimeoutMilliseconds);
    failure = fillDatabase(db, root);
    if (failure) sqlite3_exec(db, schema::kRollback, nullptr, nullptr, nullptr);
  }
  sqlite3_close_v2(db);
  if (!failure) {
    struct stat replaced {};
    const bool replacing = ::stat(destination.c_str(), &replaced) == 0;
    int err = 0;
    if (!flushFile(calls, pending, replacing ? &replaced : nullptr, &err)) {
      failure = posixError(err);
    } else if (calls.rename(pending.c_str(), destination.c_str()) != 0) {
      failure = lastPosixError();
    } else {
      flushFolder(calls, folder);
      return true;
    }
  }
  calls.unlink(pending.c_str());
  if (error && failure) *error = *failure;
  return false;
}

}  // namespace tw
