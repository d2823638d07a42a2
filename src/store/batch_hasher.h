// SHA-256 of many files on several threads, handed back in batches in the order of the list.
// Threads take the next file as they come free, so one large file does not hold the others up,
// but they run at most a few batches ahead of the batch the caller is storing: memory stays
// bounded and stopping wastes little. Each file is opened once: its state is checked on the open
// file, which also saves a path lookup, then read in 1 MiB reads; a file replaced, grown or
// rewritten while it was read is left out.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "store/duplicates.h"

namespace tw {

using Sha256Digest = std::array<unsigned char, 32>;

// A file to hash and what the scan recorded of it. The file is hashed only when it still has the
// recorded allocated size and a date within a millisecond of the recorded one (any date when that
// is 0), and only while it stays as it was when opened.
struct HashJob {
  std::string_view path;  // followed by a NUL in memory
  uint64_t size = 0;
  double scanDate = 0;
};

struct HashOutcome {
  Sha256Digest digest{};
  uint64_t bytesRead = 0;
  uint64_t size = 0;  // allocated size and modification date the checksum was computed at
  double date = 0;
  bool hashed = false;
};

// Two dates are the same when they differ by less than a millisecond; a recorded 0 means the date
// was unknown and matches anything.
bool sameDate(double current, double recorded);
// The modification time of `st` in seconds since 1970, as stored with a checksum.
double modificationSeconds(const struct stat& st);

class BatchHasher {
 public:
  static constexpr std::size_t kBatchSize = 100;
  static constexpr std::size_t kReadSize = 1048576;

  // Starts `threads` threads on `jobs`, which must outlive the hasher.
  BatchHasher(const std::vector<HashJob>& jobs, int threads, HashReadCall read);
  ~BatchHasher();  // stops and joins the threads
  BatchHasher(const BatchHasher&) = delete;
  BatchHasher& operator=(const BatchHasher&) = delete;

  std::size_t batchCount() const { return (jobs_.size() + kBatchSize - 1) / kBatchSize; }
  // Waits until every file of batch `batch` is done; answers false when `shouldCancel` said yes
  // first (it is asked about every 20 ms on the calling thread).
  bool waitForBatch(std::size_t batch, const CancelCheck& shouldCancel);
  // The outcome of job `index`, valid from waitForBatch of its batch until release of that batch.
  const HashOutcome& outcome(std::size_t index) const {
    return outcomes_[index % outcomes_.size()];
  }
  // The caller is done with `batch`: its slots may take later files.
  void release(std::size_t batch);
  void stop();

 private:
  static constexpr std::size_t kBatchesAhead = 8;
  void run();

  const std::vector<HashJob>& jobs_;
  HashReadCall read_;
  std::vector<HashOutcome> outcomes_;  // a ring of kBatchesAhead batches
  std::vector<std::size_t> finished_;  // files done, per batch slot of the ring
  std::mutex mutex_;
  std::condition_variable workAllowed_, batchDone_;
  std::size_t next_ = 0;      // the next job to take
  std::size_t released_ = 0;  // batches the caller is done with
  std::atomic<bool> stopping_{false};
  std::vector<std::thread> threads_;
};

}  // namespace tw
