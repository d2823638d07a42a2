// Duplicate detection over a saved scan. Only files that share their allocated size with another
// file in the subtree are ever read; their SHA-256 checksums are kept in the scan database with the
// size and date they were computed at, so a second search reads only what changed. The store's
// lock is held for database steps only, never while files are read.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "platform/paths.h"
#include "store/batch_hasher.h"
#include "store/duplicate_model.h"
#include "store/duplicate_schema.h"
#include "store/scan_store.h"
#include "store/schema.h"
#include "store/sqlite_statement.h"

namespace tw {

namespace {

// A file that shares its size with another, as the scan and the last checksum recorded it.
struct Candidate {
  int64_t id = 0;
  uint64_t size = 0;
  double scanDate = 0;  // 0 when the scan has none
  uint64_t checksumSize = 0;
  double checksumDate = 0;
  std::size_t pathOffset = 0;
  uint32_t pathLength = 0;
  bool hasChecksum = false;
};

// What the check against the disk decided for a candidate.
enum class Verdict : uint8_t { Drop, Clear, Keep, Hash };

// Whether this process may read a file with these owners and mode bits.
class ReadPermission {
 public:
  ReadPermission() : uid_(geteuid()) {
    groups_.push_back(getegid());
    const int count = getgroups(0, nullptr);
    if (count > 0) {
      std::vector<gid_t> more(static_cast<std::size_t>(count));
      if (getgroups(count, more.data()) == count)
        groups_.insert(groups_.end(), more.begin(), more.end());
    }
  }
  bool allows(const struct stat& st) const {
    if (uid_ == 0) return true;
    if (st.st_uid == uid_) return st.st_mode & S_IRUSR;
    if (std::find(groups_.begin(), groups_.end(), st.st_gid) != groups_.end())
      return st.st_mode & S_IRGRP;
    return st.st_mode & S_IROTH;
  }

 private:
  uid_t uid_;
  std::vector<gid_t> groups_;
};

// A file without a checksum is judged by the hasher on the file it opens, which saves a path
// lookup: it is hashed when its size and date are still those of the scan, else left out.
Verdict judge(const Candidate& candidate, const char* path, const ReadPermission& permission) {
  if (!candidate.hasChecksum) return Verdict::Hash;
  struct stat st {};
  // Gone, no longer a file, or no longer ours to read: its checksum can no longer be trusted.
  if (::lstat(path, &st) != 0 || !S_ISREG(st.st_mode) || !permission.allows(st))
    return Verdict::Clear;
  const uint64_t size = static_cast<uint64_t>(st.st_blocks) * 512;
  const double date = modificationSeconds(st);
  if (size != candidate.size || !sameDate(date, candidate.scanDate)) return Verdict::Clear;
  if (candidate.checksumSize == size && candidate.checksumDate != 0 &&
      sameDate(date, candidate.checksumDate))
    return Verdict::Keep;
  return Verdict::Hash;
}

std::string hexChecksum(const unsigned char* bytes, std::size_t length) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string hex;
  hex.reserve(length * 2);
  for (std::size_t i = 0; i < length; ++i) {
    hex.push_back(kDigits[bytes[i] >> 4]);
    hex.push_back(kDigits[bytes[i] & 15]);
  }
  return hex;
}

std::string groupKey(uint64_t size, std::string_view hex) {
  return std::to_string(size) + ":" + std::string(hex);
}

// Appends `node` to the group of `key`, making the group when the key is new.
void addToGroup(std::vector<DuplicateGroup>& groups, DuplicateGroupsByPath& byPath,
                std::unordered_map<std::string, std::size_t>& byKey, std::string key,
                ScanNodeRef node) {
  auto [at, added] = byKey.try_emplace(key, groups.size());
  if (added) groups.push_back(DuplicateGroup{std::move(key), node->size(), {}});
  byPath[standardizePath(node->path())] = at->second;
  groups[at->second].files.push_back(std::move(node));
}

}  // namespace

// One run of duplicateFilesUnderNode.
class DuplicateSearch {
 public:
  DuplicateSearch(ScanStore& store, int64_t nodeID, const DuplicateSearchOptions& options,
                  DuplicateSearchFigures& figures)
      : store_(store), nodeID_(nodeID), options_(options), figures_(figures) {}

  std::vector<DuplicateGroup> run(DuplicateGroupsByPath& groupsByPath, Error* error);

 private:
  struct Snapshot {
    std::vector<DuplicateGroup> groups;
    DuplicateGroupsByPath byPath;
  };
  const char* pathOf(const Candidate& candidate) const {
    return paths_.data() + candidate.pathOffset;
  }
  std::optional<Error> readCandidates();
  void checkCandidates(std::vector<Verdict>& verdicts, std::optional<Snapshot>& speculative);
  void clearChecksums(const std::vector<int64_t>& ids);
  bool loadModel(const std::vector<Verdict>& verdicts);
  std::optional<Error> storeBatch(std::size_t batch, const BatchHasher& hasher);
  Snapshot modelSnapshot();
  void deferSyncing();
  void resumeSyncing();

  ScanStore& store_;
  int64_t nodeID_;
  const DuplicateSearchOptions& options_;
  DuplicateSearchFigures& figures_;
  std::vector<Candidate> candidates_;
  std::string paths_;               // every candidate's path followed by a NUL
  std::vector<std::size_t> queue_;  // candidates to hash, largest first
  std::vector<HashJob> jobs_;       // the same, as found on disk
  DuplicateModel model_;
  std::vector<uint32_t> modelRows_;  // row of each job in the model
  bool modelLoaded_ = false;
  std::unordered_map<int64_t, ScanNodeRef> listedNodes_;
  std::string restoreScript_;  // the connection's settings before the search
};

std::optional<Error> DuplicateSearch::readCandidates() {
  std::lock_guard guard(store_.lock_);
  Statement select;
  if (!select.prepare(store_.db_, schema::kDuplicateCandidates))
    return sqliteError(store_.db_, schema::label::kFindCandidates);
  select.bindInt(1, nodeID_);
  int step;
  while ((step = select.step()) == SQLITE_ROW) {
    Candidate candidate;
    candidate.id = select.columnInt(0);
    const std::string_view path = select.columnText(1);
    candidate.pathOffset = paths_.size();
    candidate.pathLength = static_cast<uint32_t>(path.size());
    paths_.append(path);
    paths_.push_back('\0');
    candidate.size = static_cast<uint64_t>(select.columnInt(2));
    candidate.scanDate = select.columnIsNull(3) ? 0 : select.columnDouble(3);
    candidate.hasChecksum = select.columnInt(4) != 0;
    candidate.checksumSize = static_cast<uint64_t>(select.columnInt(5));
    candidate.checksumDate = select.columnIsNull(6) ? 0 : select.columnDouble(6);
    candidates_.push_back(candidate);
  }
  if (step != SQLITE_DONE) return sqliteError(store_.db_, schema::label::kReadCandidates);
  // Files of one size in the order they were written: the rows a batch updates then lie close
  // together in the table and its indexes, and folders are read one after another.
  std::sort(candidates_.begin(), candidates_.end(), [](const Candidate& a, const Candidate& b) {
    return a.size != b.size ? a.size > b.size : a.id < b.id;
  });
  return std::nullopt;
}

// Candidates with a checksum are looked at with lstat, spread over the search's threads. When every
// candidate has one, a repeated search of an unchanged folder is likely: the snapshot of the
// stored checksums is then read meanwhile, and stands as the answer if the check changes nothing.
void DuplicateSearch::checkCandidates(std::vector<Verdict>& verdicts,
                                      std::optional<Snapshot>& speculative) {
  verdicts.resize(candidates_.size());
  const ReadPermission permission;
  const std::size_t threads = std::clamp<std::size_t>(
      options_.threads, 1, std::max<std::size_t>(1, candidates_.size() / 1024));
  auto work = [&](std::size_t part) {
    const std::size_t begin = candidates_.size() * part / threads;
    const std::size_t end = candidates_.size() * (part + 1) / threads;
    for (std::size_t i = begin; i < end; ++i)
      verdicts[i] = judge(candidates_[i], pathOf(candidates_[i]), permission);
  };
  const bool speculate = std::all_of(candidates_.begin(), candidates_.end(),
                                     [](const Candidate& c) { return c.hasChecksum; });
  std::vector<std::thread> helpers;
  for (std::size_t part = speculate ? 0 : 1; part < threads; ++part)
    helpers.emplace_back(work, part);
  if (speculate) {
    speculative.emplace();
    speculative->groups = store_.duplicateSnapshotUnderID(nodeID_, &speculative->byPath);
  } else {
    work(0);
  }
  for (std::thread& helper : helpers) helper.join();
}

void DuplicateSearch::clearChecksums(const std::vector<int64_t>& ids) {
  if (ids.empty()) return;
  std::lock_guard guard(store_.lock_);
  // One transaction for all of them; each result is ignored, as a stale checksum is cleared again
  // by the next search.
  const bool inTransaction = execScript(store_.db_, schema::kBeginBatch);
  Statement clear(store_.db_, schema::kClearChecksum);
  for (int64_t id : ids) {
    clear.bindInt(1, id);
    if (clear.step() == SQLITE_DONE) ++figures_.clearedChecksums;
    clear.resetAndClear();
  }
  clear.finalize();
  if (inTransaction && !execScript(store_.db_, schema::kCommitBatch))
    execScript(store_.db_, schema::kRollbackBatch);
}

// Only files that share their size with another file of the subtree are ever given a checksum, so
// every group of the subtree is made of candidates: the model holds the queued files and the
// candidates whose checksum stays, with that checksum.
bool DuplicateSearch::loadModel(const std::vector<Verdict>& verdicts) {
  modelRows_.reserve(queue_.size());
  std::vector<std::pair<uint32_t, int64_t>> withChecksum;  // model row, row id
  for (std::size_t i = 0; i < candidates_.size(); ++i) {
    if (verdicts[i] != Verdict::Hash && verdicts[i] != Verdict::Keep) continue;
    const Candidate& candidate = candidates_[i];
    const uint32_t row =
        model_.addRow(candidate.id, candidate.size, {pathOf(candidate), candidate.pathLength});
    if (verdicts[i] == Verdict::Hash) modelRows_.push_back(row);
    if (candidate.hasChecksum) withChecksum.emplace_back(row, candidate.id);
  }
  if (!withChecksum.empty()) {
    std::lock_guard guard(store_.lock_);
    Statement select(store_.db_, schema::kReadChecksum);
    for (auto [row, id] : withChecksum) {
      select.bindInt(1, id);
      // The model keys on SHA-256 digests; anything else stored is left to the SQL snapshot.
      if (!select.valid() || select.step() != SQLITE_ROW ||
          sqlite3_column_bytes(select.get(), 0) != static_cast<int>(sizeof(Sha256Digest)))
        return false;
      Sha256Digest checksum;
      std::memcpy(checksum.data(), sqlite3_column_blob(select.get(), 0), checksum.size());
      model_.loadChecksum(row, checksum);
      select.resetAndClear();
    }
  }
  model_.finishLoading();
  return true;
}

// The first members of the model as nodes; rows listed before keep their nodes.
DuplicateSearch::Snapshot DuplicateSearch::modelSnapshot() {
  const std::vector<uint32_t> rows = model_.firstMembers(schema::kDuplicateGroupsLimit);
  Snapshot snapshot;
  std::unordered_map<std::string, std::size_t> byKey;
  std::unordered_map<int64_t, ScanNodeRef> listed;
  std::lock_guard guard(store_.lock_);
  Statement select(store_.db_, schema::kDuplicateMember);
  ScanNodeRef answer = ScanNode::makeRoot("", true);
  for (uint32_t row : rows) {
    const int64_t id = model_.id(row);
    ScanNodeRef node;
    if (auto known = listedNodes_.find(id); known != listedNodes_.end()) {
      node = known->second;
    } else {
      select.bindInt(1, id);
      if (select.step() == SQLITE_ROW)
        node = store_.nodeFromStatement(select.get(), nullptr, answer.get())->ref();
      select.resetAndClear();
      if (!node) continue;
    }
    listed.emplace(id, node);
    const Sha256Digest& checksum = model_.checksum(row);
    addToGroup(snapshot.groups, snapshot.byPath, byKey,
               groupKey(model_.size(row), hexChecksum(checksum.data(), checksum.size())),
               std::move(node));
  }
  listedNodes_ = std::move(listed);
  return snapshot;
}

std::optional<Error> DuplicateSearch::storeBatch(std::size_t batch, const BatchHasher& hasher) {
  const std::size_t begin = batch * BatchHasher::kBatchSize;
  const std::size_t end = std::min(jobs_.size(), begin + BatchHasher::kBatchSize);
  std::lock_guard guard(store_.lock_);
  sqlite3* db = store_.db_;
  if (!execScript(db, schema::kBeginBatch)) return sqliteError(db, schema::label::kWrite);
  Statement update(db, schema::kStoreChecksum);
  Statement clear(db, schema::kClearChecksum);
  bool ok = update.valid() && clear.valid();
  for (std::size_t i = begin; ok && i < end; ++i) {
    const HashOutcome& outcome = hasher.outcome(i);
    const Candidate& candidate = candidates_[queue_[i]];
    if (outcome.hashed) {
      sqlite3_bind_blob(update.get(), 1, outcome.digest.data(), outcome.digest.size(),
                        SQLITE_STATIC);
      update.bindInt(2, static_cast<int64_t>(outcome.size));
      update.bindDouble(3, outcome.date);
      update.bindInt(4, candidate.id);
      ok = update.step() == SQLITE_DONE;
      update.resetAndClear();
    } else if (candidate.hasChecksum) {
      // It could not be read as it was checked: its old checksum proves nothing now.
      clear.bindInt(1, candidate.id);
      ok = clear.step() == SQLITE_DONE;
      clear.resetAndClear();
    }
  }
  std::optional<Error> failure;
  if (!ok || !execScript(db, schema::kCommitBatch)) {
    failure = sqliteError(db, schema::label::kWrite);
    update.finalize();
    clear.finalize();
    execScript(db, schema::kRollbackBatch);
    return failure;
  }
  for (std::size_t i = begin; i < end; ++i) {
    const HashOutcome& outcome = hasher.outcome(i);
    figures_.hashedBytes += outcome.bytesRead;
    if (outcome.hashed) ++figures_.hashedFiles;
    if (modelLoaded_ && (outcome.hashed || candidates_[queue_[i]].hasChecksum))
      model_.setChecksum(modelRows_[i], outcome.hashed ? &outcome.digest : nullptr);
  }
  ++figures_.storedBatches;
  return std::nullopt;
}

// Each batch is its own small transaction, and a large search stores thousands of them. Waiting
// for the disk at every commit would make storing slower than reading the files, so while the
// search runs commits do not wait (the rollback journal still keeps each batch whole if Tarnwell
// stops); the file is flushed to the disk once at the end.
void DuplicateSearch::deferSyncing() {
  std::lock_guard guard(store_.lock_);
  Statement synchronous(store_.db_, "PRAGMA synchronous");
  if (!synchronous.valid() || synchronous.step() != SQLITE_ROW) return;
  restoreScript_ = "PRAGMA synchronous=" + std::to_string(synchronous.columnInt(0));
  synchronous.finalize();
  execScript(store_.db_, "PRAGMA synchronous=OFF");
}

void DuplicateSearch::resumeSyncing() {
  if (restoreScript_.empty()) return;
  std::lock_guard guard(store_.lock_);
  execScript(store_.db_, restoreScript_.c_str());
  const int fd = ::open(store_.path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
}

std::vector<DuplicateGroup> DuplicateSearch::run(DuplicateGroupsByPath& groupsByPath,
                                                 Error* error) {
  if (std::optional<Error> failure = readCandidates()) {
    if (error) *error = *failure;
    return {};
  }
  figures_.candidates = candidates_.size();
  std::vector<Verdict> verdicts;
  std::optional<Snapshot> speculative;
  checkCandidates(verdicts, speculative);
  std::vector<int64_t> clearIDs;
  for (std::size_t i = 0; i < candidates_.size(); ++i) {
    if (verdicts[i] == Verdict::Clear) clearIDs.push_back(candidates_[i].id);
    if (verdicts[i] != Verdict::Hash) continue;
    queue_.push_back(i);
    jobs_.push_back(HashJob{{pathOf(candidates_[i]), candidates_[i].pathLength},
                            candidates_[i].size,
                            candidates_[i].scanDate});
  }
  if (!queue_.empty()) deferSyncing();
  clearChecksums(clearIDs);
  // Nothing to read: the stored checksums are the answer.
  if (queue_.empty() && clearIDs.empty() && speculative) {
    groupsByPath = std::move(speculative->byPath);
    return std::move(speculative->groups);
  }
  if (queue_.empty()) return store_.duplicateSnapshotUnderID(nodeID_, &groupsByPath);

  modelLoaded_ = loadModel(verdicts);
  auto snapshot = [this] {
    if (modelLoaded_) return modelSnapshot();
    Snapshot sql;
    sql.groups = store_.duplicateSnapshotUnderID(nodeID_, &sql.byPath);
    return sql;
  };
  Snapshot last = snapshot();
  BatchHasher hasher(jobs_, options_.threads, options_.read);
  for (std::size_t batch = 0; batch < hasher.batchCount(); ++batch) {
    if (!hasher.waitForBatch(batch, options_.shouldCancel)) {
      figures_.cancelled = true;
      break;
    }
    if (std::optional<Error> failure = storeBatch(batch, hasher)) {
      if (error) *error = *failure;
      break;
    }
    hasher.release(batch);
    if (!modelLoaded_ || model_.listingMayHaveChanged()) last = snapshot();
    const bool finished = batch + 1 == hasher.batchCount();
    if (options_.progress) options_.progress(last.groups, last.byPath, finished);
    if (!finished && options_.shouldCancel && options_.shouldCancel()) {
      figures_.cancelled = true;
      break;
    }
  }
  hasher.stop();
  resumeSyncing();
  groupsByPath = std::move(last.byPath);
  return std::move(last.groups);
}

std::vector<DuplicateGroup> ScanStore::duplicateSnapshotUnderID(
    int64_t nodeID, DuplicateGroupsByPath* groupsByPath) {
  std::vector<DuplicateGroup> groups;
  DuplicateGroupsByPath byPath;
  std::unordered_map<std::string, std::size_t> byKey;
  {
    std::lock_guard guard(lock_);
    lastReadError_.reset();
    Statement select;
    if (!select.prepare(db_, schema::kDuplicateGroups)) {
      lastReadError_ = sqliteError(db_, schema::label::kPrepareDuplicateGroups);
    } else {
      select.bindInt(1, nodeID);
      ScanNodeRef answer = ScanNode::makeRoot("", true);
      int step;
      while ((step = select.step()) == SQLITE_ROW) {
        ScanNodeRef node = nodeFromStatement(select.get(), nullptr, answer.get())->ref();
        std::string key = groupKey(node->size(), select.columnText(14));
        addToGroup(groups, byPath, byKey, std::move(key), std::move(node));
      }
      if (step != SQLITE_DONE)
        lastReadError_ = sqliteError(db_, schema::label::kReadDuplicateGroups);
    }
  }
  if (groupsByPath) *groupsByPath = std::move(byPath);
  return groups;
}

std::vector<DuplicateGroup> ScanStore::duplicateSnapshotUnderNode(
    ScanNode* node, DuplicateGroupsByPath* groupsByPath) {
  if (!node) {
    if (groupsByPath) groupsByPath->clear();
    return {};
  }
  return duplicateSnapshotUnderID(node->databaseNodeID(), groupsByPath);
}

std::vector<DuplicateGroup> ScanStore::duplicateFilesUnderNode(
    ScanNode* node, DuplicateGroupsByPath* groupsByPath, const DuplicateSearchOptions& options,
    Error* error, DuplicateSearchFigures* figures) {
  DuplicateGroupsByPath byPath;
  DuplicateSearchFigures counted;
  std::vector<DuplicateGroup> groups;
  if (node) {
    DuplicateSearch search(*this, node->databaseNodeID(), options, counted);
    groups = search.run(byPath, error);
  }
  if (groupsByPath) *groupsByPath = std::move(byPath);
  if (figures) *figures = counted;
  return groups;
}

}  // namespace tw
