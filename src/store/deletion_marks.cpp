// Deletion marks: items moved to the Trash are flagged in the saved scan and their folders shrink
// by their size; Undo flags them present again and gives the size back. Rows are never removed,
// so a restore returns the exact earlier state (apart from the clamp at 0).
#include <algorithm>
#include <string>
#include <unordered_set>

#include "platform/heap_trim.h"
#include "platform/paths.h"
#include "store/scan_store.h"
#include "store/schema.h"

namespace tw {

namespace {

// For one call: statement journals in memory and a page cache that holds the index pages the
// ancestors' sizes touch (up to 128 MB, taken only as needed); then the connection's own settings.
constexpr const char* kMarkingSettings = "PRAGMA temp_store=MEMORY; PRAGMA cache_size=-131072";
constexpr const char* kDefaultTempStore = "PRAGMA temp_store=DEFAULT";
constexpr const char* kReadCacheSize = "PRAGMA cache_size";

struct MarkTarget {
  int64_t id = 0;
  std::string path;  // standardized
};

// The nodes to mark, outermost first: a node equal to or inside one already kept is covered by
// it. Equal lengths go by row id, so a folder comes before the synthetic entries that carry its
// path. Each path is checked against the kept set at every "/" instead of against every kept node.
std::vector<int64_t> outermostTargets(const std::vector<ScanNode*>& nodes) {
  std::vector<MarkTarget> candidates;
  candidates.reserve(nodes.size());
  for (ScanNode* node : nodes) {
    if (node == nullptr) continue;
    const int64_t id = node->databaseNodeID();
    if (id < 1) continue;
    candidates.push_back({id, standardizePath(node->path())});
  }
  std::sort(candidates.begin(), candidates.end(), [](const MarkTarget& a, const MarkTarget& b) {
    if (a.path.size() != b.path.size()) return a.path.size() < b.path.size();
    return a.id < b.id;
  });
  std::vector<MarkTarget> kept;
  kept.reserve(candidates.size());  // the set below views kept paths: they must not move
  std::unordered_set<std::string_view> keptPaths;
  keptPaths.reserve(candidates.size());
  for (MarkTarget& candidate : candidates) {
    const std::string_view path = candidate.path;
    bool covered = keptPaths.count(path) != 0 || keptPaths.count("/") != 0;
    for (size_t slash = path.find('/', 1); !covered && slash != std::string_view::npos;
         slash = path.find('/', slash + 1))
      covered = keptPaths.count(path.substr(0, slash)) != 0;
    if (covered) continue;
    kept.push_back(std::move(candidate));
    keptPaths.insert(kept.back().path);
  }
  std::vector<int64_t> ids;
  ids.reserve(kept.size());
  for (const MarkTarget& target : kept) ids.push_back(target.id);
  return ids;
}

}  // namespace

bool ScanStore::setNodes(const std::vector<ScanNode*>& nodes, bool deleted, Error* error) {
  if (nodes.empty()) return true;
  const std::vector<int64_t> targets = outermostTargets(nodes);
  if (targets.empty()) return true;

  std::lock_guard guard(lock_);
  // Each update below runs in a statement journal of a few hundred kilobytes. Kept in memory
  // (not spilled to a temporary file) and reused by the heap rather than handed back to the
  // kernel each time, it costs far less than the millisecond per item it took otherwise.
  keepFreedHeapTopForReuse();
  int64_t cacheSize = -2000;
  if (Statement read(db_, kReadCacheSize); read.valid() && read.step() == SQLITE_ROW)
    cacheSize = read.columnInt(0);
  execScript(db_, kMarkingSettings);
  const bool done = markRows(targets, deleted, error);
  execScript(db_, kDefaultTempStore);
  execScript(db_, ("PRAGMA cache_size=" + std::to_string(cacheSize)).c_str());
  return done;
}

bool ScanStore::markRows(const std::vector<int64_t>& ids, bool deleted, Error* error) {
  if (!execScript(db_, schema::kBeginImmediate)) {
    if (error) *error = sqliteError(db_, schema::label::kMarkDeleted);
    return false;
  }
  std::optional<Error> failure;
  {
    Statement state, subtree, ancestors;
    if (!state.prepare(db_, schema::kMarkState) || !subtree.prepare(db_, schema::kMarkSubtree) ||
        !ancestors.prepare(db_, schema::kMoveAncestorSizes))
      failure = sqliteError(db_, schema::label::kMarkDeleted);
    const int64_t wanted = deleted ? 1 : 0;
    for (const int64_t id : ids) {
      if (failure) break;
      state.resetAndClear();
      state.bindInt(1, id);
      const int rc = state.step();
      if (rc == SQLITE_DONE) {
        failure = Error{kSQLiteErrorDomain, SQLITE_NOTFOUND,
                        std::string(schema::label::kMarkDeleted) + ": no saved item with id " +
                            std::to_string(id)};
        break;
      }
      if (rc != SQLITE_ROW) {
        failure = sqliteError(db_, schema::label::kMarkDeleted);
        break;
      }
      const int64_t size = state.columnInt(0);
      const bool alreadyThere = state.columnInt(1) == wanted;
      state.resetAndClear();
      if (alreadyThere) continue;

      subtree.resetAndClear();
      subtree.bindInt(1, id);
      subtree.bindInt(2, wanted);
      if (subtree.step() != SQLITE_DONE) {
        failure = sqliteError(db_, schema::label::kMarkDeleted);
        break;
      }
      ancestors.resetAndClear();
      ancestors.bindInt(1, id);
      ancestors.bindInt(2, deleted ? -size : size);
      if (ancestors.step() != SQLITE_DONE) {
        failure = sqliteError(db_, schema::label::kMarkDeleted);
        break;
      }
    }
    // Statements are finished before COMMIT or ROLLBACK, which must not find one still running.
  }
  if (!failure && execScript(db_, schema::kRefreshMetadataAndCommit)) return true;
  if (!failure) failure = sqliteError(db_, schema::label::kMarkDeleted);
  execScript(db_, schema::kRollbackMarks);
  if (error) *error = *failure;
  return false;
}

}  // namespace tw
