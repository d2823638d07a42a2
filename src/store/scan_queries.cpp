// Reading a scan database: nodes with lazily loaded children and the subtree queries of the
// tools. Every query is one SQL statement over the items table.
#include <chrono>
#include <cstdio>

#include "platform/paths.h"
#include "store/cleanup_kind.h"
#include "store/scan_store.h"
#include "store/schema.h"
#include "store/sqlite_statement.h"

namespace tw {

namespace {

// Columns of a node query.
enum Column {
  kID,
  kParentID,
  kName,
  kPath,
  kSize,
  kIsDirectory,
  kIsPackage,
  kIsAggregate,
  kIsVolumeRoot,
  kIsVirtual,
  kIsAPFSClone,
  kCloneAllocationElsewhere,
  kCloneSharedSize,
  kModificationDate,
};

std::string_view columnText(sqlite3_stmt* statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  if (!text) return {};
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

void bindText(sqlite3_stmt* statement, int index, std::string_view text) {
  sqlite3_bind_text(statement, index, text.data() ? text.data() : "", static_cast<int>(text.size()),
                    SQLITE_TRANSIENT);
}

// Rows streamed to a callback are read this many at a time, the store being unlocked between.
constexpr int kStreamBatch = 256;

// The LIKE pattern of a name search; empty when the text is only white space.
std::string namePattern(std::string_view text) {
  auto isSpace = [](char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
  };
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  std::string escaped;
  for (char c : text) {
    if (c == '%' || c == '_') escaped.push_back('\\');
    escaped.push_back(c);
  }
  std::string pattern;
  for (char c : escaped) pattern.push_back(c == '*' ? '%' : c == '?' ? '_' : c);
  if (pattern.empty()) return pattern;
  if (pattern.find_first_of("%_") == std::string::npos) return "%" + pattern + "%";
  return pattern;
}

double secondsSince1970Now() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

ScanNode* ScanStore::nodeFromStatement(sqlite3_stmt* statement, ScanNode* parent,
                                       ScanNode* answer) {
  const std::string_view name = columnText(statement, kName);
  const bool directory = sqlite3_column_int(statement, kIsDirectory) != 0;
  ScanNode* node =
      parent ? parent->createNode(name, directory) : answer->createDetachedNode(name, directory);
  populateNode(node, statement);
  return node;
}

void ScanStore::populateNode(ScanNode* node, sqlite3_stmt* statement) {
  node->setPath(columnText(statement, kPath));
  node->setDatabaseNodeID(sqlite3_column_int64(statement, kID));
  node->setScanStore(shared_from_this());
  node->setSize(static_cast<uint64_t>(sqlite3_column_int64(statement, kSize)));
  node->setPackage(sqlite3_column_int(statement, kIsPackage) != 0);
  node->setAggregate(sqlite3_column_int(statement, kIsAggregate) != 0);
  node->setVolumeRoot(sqlite3_column_int(statement, kIsVolumeRoot) != 0);
  node->setVirtualNode(sqlite3_column_int(statement, kIsVirtual) != 0);
  node->setAPFSClone(sqlite3_column_int(statement, kIsAPFSClone) != 0);
  node->setCloneAllocationElsewhere(sqlite3_column_int(statement, kCloneAllocationElsewhere) != 0);
  node->setCloneSharedSize(
      static_cast<uint64_t>(sqlite3_column_int64(statement, kCloneSharedSize)));
  if (sqlite3_column_type(statement, kModificationDate) != SQLITE_NULL)
    node->setModificationDate(sqlite3_column_double(statement, kModificationDate));
  if (node->isDirectory()) {
    // The loader runs under the node's lock and takes the store's: node first, then store.
    node->setLazyChildrenLoader([weak = weak_from_this()](ScanNode& folder) {
      std::shared_ptr<ScanStore> store = weak.lock();
      return store ? store->childrenOfNode(folder) : std::vector<ScanNode*>{};
    });
  }
}

std::vector<ScanNodeRef> ScanStore::nodesForSQL(const std::string& sql,
                                                const std::function<void(sqlite3_stmt*)>& bind,
                                                const char* prepareLabel, const char* stepLabel,
                                                std::optional<Error>* failure) {
  std::lock_guard guard(lock_);
  lastReadError_.reset();
  std::vector<ScanNodeRef> nodes;
  Statement statement;
  if (!statement.prepare(db_, sql)) {
    lastReadError_ = sqliteError(db_, prepareLabel);
    if (failure) *failure = lastReadError_;
    return nodes;
  }
  if (bind) bind(statement.get());
  ScanNodeRef answer = ScanNode::makeRoot("", true);
  int step;
  while ((step = statement.step()) == SQLITE_ROW)
    nodes.push_back(nodeFromStatement(statement.get(), nullptr, answer.get())->ref());
  if (step != SQLITE_DONE) {
    lastReadError_ = sqliteError(db_, stepLabel);
    if (failure) *failure = lastReadError_;
  }
  return nodes;
}

ScanNodeRef ScanStore::rootNode() {
  std::lock_guard guard(lock_);
  lastReadError_.reset();
  Statement select;
  if (!select.prepare(db_, schema::kRootNode)) {
    lastReadError_ = sqliteError(db_, schema::label::kPrepareQuery);
    return nullptr;
  }
  select.bindInt(1, rootNodeID_);
  const int step = select.step();
  if (step != SQLITE_ROW) {
    if (step != SQLITE_DONE) lastReadError_ = sqliteError(db_, schema::label::kReadItems);
    return nullptr;
  }
  sqlite3_stmt* row = select.get();
  ScanNodeRef root =
      ScanNode::makeRoot(columnText(row, kPath), sqlite3_column_int(row, kIsDirectory) != 0);
  root->setName(columnText(row, kName));
  populateNode(root.get(), row);
  select.finalize();

  Statement meta;
  if (meta.prepare(db_, schema::kReadMetadata) && meta.step() == SQLITE_ROW) {
    if (!meta.columnIsNull(1)) root->setScanDate(meta.columnDouble(1));
    root->setVolumeCapacity(static_cast<uint64_t>(meta.columnInt(6)));
    root->setVolumeFreeSpace(static_cast<uint64_t>(meta.columnInt(7)));
    root->setVolumeAvailableSpace(static_cast<uint64_t>(meta.columnInt(8)));
    root->setSourceFingerprint(static_cast<uint64_t>(meta.columnInt(9)));
    root->setSourceItemCount(meta.columnInt(10));
  } else {
    lastReadError_ = sqliteError(db_, schema::label::kReadMetadata);
  }
  meta.finalize();

  Statement issues;
  if (!issues.prepare(db_, schema::kReadIssues)) {
    lastReadError_ = sqliteError(db_, schema::label::kPrepareIssues);
    return root;
  }
  std::vector<ScanIssue> list;
  int issueStep;
  while ((issueStep = issues.step()) == SQLITE_ROW)
    list.push_back(ScanIssue{std::string(issues.columnText(0)), std::string(issues.columnText(1))});
  if (issueStep != SQLITE_DONE) lastReadError_ = sqliteError(db_, schema::label::kReadIssues);
  root->setScanIssues(std::move(list));
  return root;
}

ScanNodeRef ScanStore::nodeAtPath(std::string_view path) {
  if (path.empty()) return nullptr;
  const std::string standardized = standardizePath(path);
  std::vector<ScanNodeRef> nodes = nodesForSQL(
      schema::kNodeAtPath, [&standardized](sqlite3_stmt* s) { bindText(s, 1, standardized); },
      schema::label::kPrepareQuery, schema::label::kReadItems);
  return nodes.empty() ? nullptr : nodes.front();
}

std::vector<ScanNodeRef> ScanStore::nodesAtPaths(const std::vector<std::string>& paths) {
  std::vector<ScanNodeRef> nodes(paths.size());
  std::lock_guard guard(lock_);
  lastReadError_.reset();
  Statement select;
  if (!select.prepare(db_, schema::kNodeAtPath)) {
    lastReadError_ = sqliteError(db_, schema::label::kPrepareQuery);
    return nodes;
  }
  ScanNodeRef answer = ScanNode::makeRoot("", true);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (paths[i].empty()) continue;
    const std::string standardized = standardizePath(paths[i]);
    select.bindText(1, standardized);
    const int step = select.step();
    if (step == SQLITE_ROW) {
      nodes[i] = nodeFromStatement(select.get(), nullptr, answer.get())->ref();
    } else if (step != SQLITE_DONE) {
      lastReadError_ = sqliteError(db_, schema::label::kReadItems);
    }
    select.resetAndClear();
  }
  return nodes;
}

std::vector<ScanNode*> ScanStore::childrenOfNode(ScanNode& node) {
  const int64_t id = node.databaseNodeID();
  std::lock_guard guard(lock_);
  lastReadError_.reset();
  std::vector<ScanNode*> children;
  Statement& select = childrenStatement_;
  if (!select.valid() && !select.prepare(db_, schema::kChildren)) {
    lastReadError_ = sqliteError(db_, schema::label::kPrepareQuery);
    return children;
  }
  select.bindInt(1, id);
  int step;
  while ((step = select.step()) == SQLITE_ROW)
    children.push_back(nodeFromStatement(select.get(), &node, nullptr));
  if (step != SQLITE_DONE) lastReadError_ = sqliteError(db_, schema::label::kReadItems);
  select.resetAndClear();
  return children;
}

std::vector<ScanNodeRef> ScanStore::subtreeNodes(const char* sql, ScanNode* node, int64_t limit) {
  const int64_t id = node->databaseNodeID();
  return nodesForSQL(
      sql,
      [id, limit](sqlite3_stmt* s) {
        sqlite3_bind_int64(s, 1, id);
        if (limit != 0) sqlite3_bind_int64(s, 2, limit);
      },
      schema::label::kPrepareQuery, schema::label::kReadItems);
}

std::vector<ScanNodeRef> ScanStore::allNodesUnderNode(ScanNode* node) {
  if (!node) return {};
  return subtreeNodes(schema::kAllNodes, node, 0);
}

std::vector<ScanNodeRef> ScanStore::allFilesUnderNode(ScanNode* node) {
  if (!node) return {};
  return subtreeNodes(schema::kAllFiles, node, 0);
}

std::vector<ScanNodeRef> ScanStore::largestFilesUnderNode(ScanNode* node, int64_t limit) {
  if (!node || limit == 0) return {};
  return subtreeNodes(schema::kLargestFiles, node, limit);
}

std::vector<ScanNodeRef> ScanStore::filesUnderNode(ScanNode* node, std::string_view matchingName,
                                                   int64_t limit) {
  if (!node || limit == 0) return {};
  const std::string pattern = namePattern(matchingName);
  if (pattern.empty()) return {};
  const int64_t id = node->databaseNodeID();
  return nodesForSQL(
      schema::kFilesMatchingName,
      [&](sqlite3_stmt* s) {
        sqlite3_bind_int64(s, 1, id);
        bindText(s, 2, pattern);
        sqlite3_bind_int64(s, 3, limit);
      },
      schema::label::kPrepareQuery, schema::label::kReadItems);
}

std::vector<ScanNodeRef> ScanStore::cleanupCandidatesUnderNode(ScanNode* node, int64_t limit) {
  if (!node || limit == 0) return {};
  const int64_t id = node->databaseNodeID();
  const double before = secondsSince1970Now() - schema::kCleanupMinimumAgeSeconds;
  return nodesForSQL(
      schema::kCleanupCandidates,
      [&](sqlite3_stmt* s) {
        sqlite3_bind_int64(s, 1, id);
        sqlite3_bind_double(s, 2, before);
        sqlite3_bind_int64(s, 3, limit);
      },
      schema::label::kPrepareQuery, schema::label::kReadItems);
}

std::optional<std::vector<ExtensionSummary>> ScanStore::fileExtensionSummaryUnderNode(
    ScanNode* node, Error* error) {
  if (!node) return std::vector<ExtensionSummary>{};
  std::lock_guard guard(lock_);
  Statement select;
  if (!select.prepare(db_, schema::kExtensionSummary)) {
    if (error) *error = sqliteError(db_, schema::label::kPrepareSummary);
    return std::nullopt;
  }
  select.bindInt(1, node->databaseNodeID());
  std::vector<ExtensionSummary> summary;
  int step;
  while ((step = select.step()) == SQLITE_ROW) {
    summary.push_back(ExtensionSummary{std::string(select.columnText(0)),
                                       static_cast<uint64_t>(select.columnInt(1)),
                                       static_cast<uint64_t>(select.columnInt(2))});
  }
  if (step != SQLITE_DONE) {
    if (error) *error = sqliteError(db_, schema::label::kSummarize);
    return std::nullopt;
  }
  return summary;
}

std::vector<ScanNodeRef> ScanStore::filesUnderNode(
    ScanNode* node, const std::vector<std::string>& matchingExtensions,
    const std::vector<std::string>& excludingExtensions, int64_t limit, Error* error) {
  if (!node || limit == 0) return {};
  const std::vector<std::string>& list =
      matchingExtensions.empty() ? excludingExtensions : matchingExtensions;
  std::string sql = schema::kFilesByExtensionHead;
  if (!list.empty()) {
    char filter[64];
    std::snprintf(filter, sizeof filter, schema::kExtensionFilterFormat,
                  matchingExtensions.empty() ? "NOT IN" : "IN");
    sql += filter;
    for (std::size_t i = 0; i < list.size(); ++i) sql += i ? ",?" : "?";
    sql += ")";
  }
  sql += schema::kFilesByExtensionTail;
  const int64_t id = node->databaseNodeID();
  std::optional<Error> failure;
  std::vector<ScanNodeRef> nodes = nodesForSQL(
      sql,
      [&](sqlite3_stmt* s) {
        int index = 1;
        sqlite3_bind_int64(s, index++, id);
        for (const std::string& extension : list) bindText(s, index++, asciiLowercase(extension));
        sqlite3_bind_int64(s, index, limit);
      },
      schema::label::kPrepareTypeFiles, schema::label::kReadTypeFiles, &failure);
  if (failure && error) *error = *failure;
  return nodes;
}

bool ScanStore::enumerateNodesUnderNode(ScanNode* node, const NodeStreamCallback& callback,
                                        Error* error) {
  if (!node || !callback) return true;
  Statement select;
  {
    std::lock_guard guard(lock_);
    if (!select.prepare(db_, schema::kStreamNodes)) {
      if (error) *error = sqliteError(db_, schema::label::kStream);
      return false;
    }
    select.bindInt(1, node->databaseNodeID());
  }
  // Rows are read in batches under the store's lock, and the callback runs with the store
  // unlocked: a callback that loads a node's children takes that node's lock and then the
  // store's, the one order every thread uses.
  std::vector<ScanNodeRef> batch;
  for (bool done = false; !done;) {
    batch.clear();
    {
      std::lock_guard guard(lock_);
      ScanNodeRef answer = ScanNode::makeRoot("", true);
      int step = SQLITE_ROW;
      while (batch.size() < kStreamBatch && (step = select.step()) == SQLITE_ROW)
        batch.push_back(nodeFromStatement(select.get(), nullptr, answer.get())->ref());
      if (step != SQLITE_ROW && step != SQLITE_DONE) {
        if (error) *error = sqliteError(db_, schema::label::kStream);
        return false;
      }
      done = step == SQLITE_DONE;
    }
    for (const ScanNodeRef& streamed : batch) {
      std::optional<Error> callbackError;
      if (!callback(streamed, callbackError)) {
        if (error) {
          if (callbackError) {
            *error = *callbackError;
          } else {
            std::lock_guard guard(lock_);
            *error = sqliteError(db_, schema::label::kStream);
          }
        }
        return false;
      }
    }
  }
  return true;
}

}  // namespace tw
