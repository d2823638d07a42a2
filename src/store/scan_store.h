// Scan database: one saved scan per SQLite file.
//
// ScanStore writes a scan tree into a scan database, upgrades files of earlier versions in place,
// converts legacy scan archives, and answers every question asked of a saved scan: a folder's
// children, loaded on demand so a million-item scan opens at once, and the subtree queries of the
// tools (largest files, name search, cleanup candidates, file types, streaming every item). It owns
// the open connection of one file. Nodes it hands out hold it strongly, so the connection closes
// when the last such node goes away. Every operation holds the store's recursive lock; a node's
// lock is always taken before the store's, never after.
//
// Node queries never fail loudly: they return what they have and leave the error in
// lastReadError(). Database failures are errors in kSQLiteErrorDomain with SQLite's code and
// "label: message".
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "scan/scan_node.h"
#include "store/duplicates.h"
#include "store/file_system_calls.h"
#include "store/sqlite_statement.h"

namespace tw {

// The metadata row of a scan database.
struct ScanMetadata {
  int64_t schemaVersion = 0;
  std::optional<double> scanDate;  // seconds since 1970
  int64_t rootNodeID = 0;
  std::string locationPath;
  std::string locationName;
  uint64_t logicalSize = 0;
  uint64_t volumeCapacity = 0;
  uint64_t volumeFreeSpace = 0;
  uint64_t volumeAvailableSpace = 0;
  uint64_t sourceFingerprint = 0;
  int64_t sourceItemCount = 0;
};

// One line of the file-type summary: the lower-cased extension ("" for none), the bytes and the
// number of files.
struct ExtensionSummary {
  std::string extension;
  uint64_t bytes = 0;
  uint64_t count = 0;
};

// Called for each streamed node; answering false stops the stream, optionally with an error.
using NodeStreamCallback =
    std::function<bool(const ScanNodeRef& node, std::optional<Error>& error)>;

class ScanStore : public std::enable_shared_from_this<ScanStore> {
 public:
  ~ScanStore();
  ScanStore(const ScanStore&) = delete;
  ScanStore& operator=(const ScanStore&) = delete;

  // Writing files (no open store needed).
  // Writes the tree below `root` to a new file at `path`, replacing any file there only when the
  // new one is complete. False without an error when `root` is null or `path` is not absolute.
  static bool writeRootNode(ScanNode* root, const std::string& path, Error* error = nullptr);
  // The same with the system calls a test chooses.
  static bool writeRootNode(ScanNode* root, const std::string& path, const FileSystemCalls& calls,
                            Error* error);
  // Converts a legacy scan archive (and its ".metadata.plist" sidecar) into a scan database.
  static bool migrateArchive(const std::string& archivePath, const std::string& destinationPath,
                             Error* error = nullptr);

  // Opening and describing files.
  // Opens a file for reading and updating, upgrading version 1 and 2 files in place.
  static std::shared_ptr<ScanStore> open(const std::string& path, Error* error = nullptr);
  // The metadata row, read without opening a store.
  static std::optional<ScanMetadata> metadataAt(const std::string& path, Error* error = nullptr);
  const std::string& path() const { return path_; }
  int64_t rootNodeID() const { return rootNodeID_; }
  // The error of the last failed node query, if the last one failed.
  std::optional<Error> lastReadError() const;

  // Nodes and children. The root is a new tree; children are made in their parent's tree.
  ScanNodeRef rootNode();
  // The first item whose path is `path` (standardized first), as a node of its own.
  ScanNodeRef nodeAtPath(std::string_view path);
  // nodeAtPath for many paths at once, answer i for path i (null where there is none): one
  // prepared query and one tree for all the nodes, for lists of thousands.
  std::vector<ScanNodeRef> nodesAtPaths(const std::vector<std::string>& paths);
  // The children of `node` in the child order, made in node's tree with `node` as parent.
  std::vector<ScanNode*> childrenOfNode(ScanNode& node);

  // Subtree queries. Each answer is a list of nodes of their own, kept alive by the references.
  // Every item below `node` and the node itself, shallow before deep.
  std::vector<ScanNodeRef> allNodesUnderNode(ScanNode* node);
  // Files, largest first.
  std::vector<ScanNodeRef> allFilesUnderNode(ScanNode* node);
  std::vector<ScanNodeRef> largestFilesUnderNode(ScanNode* node, int64_t limit);
  // Files whose name matches `text`: a substring without wildcards, else a whole-name match
  // where "*" is any run and "?" one character; case-insensitive.
  std::vector<ScanNodeRef> filesUnderNode(ScanNode* node, std::string_view matchingName,
                                          int64_t limit);
  // Items of a cleanup class: ".DS_Store" files, and other classes of 10 MB or more unchanged for
  // a week; largest first.
  std::vector<ScanNodeRef> cleanupCandidatesUnderNode(ScanNode* node, int64_t limit);
  // Bytes and file counts per extension, in no particular order; nullopt on failure.
  std::optional<std::vector<ExtensionSummary>> fileExtensionSummaryUnderNode(
      ScanNode* node, Error* error = nullptr);
  // Files with one of `matchingExtensions`, or when that is empty without any of
  // `excludingExtensions`; largest first.
  std::vector<ScanNodeRef> filesUnderNode(ScanNode* node,
                                          const std::vector<std::string>& matchingExtensions,
                                          const std::vector<std::string>& excludingExtensions,
                                          int64_t limit, Error* error = nullptr);
  // Deletion marks. Flags the rows of `nodes` (read from this store) and their subtrees deleted,
  // or present again, and moves every ancestor's size by theirs (never below 0); nested nodes count
  // once. All or nothing; an empty list succeeds at once. Nodes in memory are not changed.
  bool setNodes(const std::vector<ScanNode*>& nodes, bool deleted, Error* error = nullptr);

  // Duplicate files: equal allocated size and equal SHA-256 contents, checksums kept in the file.
  // The groups the stored checksums prove now, without reading any file: at most 500 members,
  // largest first, then by path. Failures go to lastReadError().
  std::vector<DuplicateGroup> duplicateSnapshotUnderNode(
      ScanNode* node, DuplicateGroupsByPath* groupsByPath = nullptr);
  // Brings the checksums of every file below `node` that shares its size with another up to date,
  // reading only files new or changed since their checksum, and returns the groups as the snapshot
  // does. Progress comes after each stored batch of 100 on the calling thread; the store is locked
  // only for database steps. A failed batch is rolled back and ends the search with the groups
  // found so far and the error.
  std::vector<DuplicateGroup> duplicateFilesUnderNode(ScanNode* node,
                                                      DuplicateGroupsByPath* groupsByPath,
                                                      const DuplicateSearchOptions& options = {},
                                                      Error* error = nullptr,
                                                      DuplicateSearchFigures* figures = nullptr);

  // Calls `callback` for every item of the subtree in the order they were written. The store is
  // not locked while the callback runs, so the callback may load children of any node.
  bool enumerateNodesUnderNode(ScanNode* node, const NodeStreamCallback& callback,
                               Error* error = nullptr);

 private:
  ScanStore(std::string path, sqlite3* db);
  // A node from the current row of a node query: a child made in `parent`'s tree, or a node of its
  // own in `answer`'s tree.
  ScanNode* nodeFromStatement(sqlite3_stmt* statement, ScanNode* parent, ScanNode* answer);
  // Sets everything a row says about a node: path, identity, store, sizes, flags, date, loader.
  void populateNode(ScanNode* node, sqlite3_stmt* statement);
  // Runs a node query and returns its rows as nodes of their own. `bind` binds the parameters;
  // failures go to lastReadError with the two labels.
  std::vector<ScanNodeRef> nodesForSQL(const std::string& sql,
                                       const std::function<void(sqlite3_stmt*)>& bind,
                                       const char* prepareLabel, const char* stepLabel,
                                       std::optional<Error>* failure = nullptr);
  std::vector<ScanNodeRef> subtreeNodes(const char* sql, ScanNode* node, int64_t limit);
  // setNodes on rows `ids`, none inside another, in one immediate transaction.
  bool markRows(const std::vector<int64_t>& ids, bool deleted, Error* error);
  std::vector<DuplicateGroup> duplicateSnapshotUnderID(int64_t nodeID,
                                                       DuplicateGroupsByPath* groupsByPath);
  friend class DuplicateSearch;

  std::string path_;
  sqlite3* db_ = nullptr;
  mutable std::recursive_mutex lock_;
  int64_t rootNodeID_ = 0;
  std::optional<Error> lastReadError_;
  // Browsing loads children folder after folder: the query is prepared once and reset after use.
  Statement childrenStatement_;
};

}  // namespace tw
