#include "store/batch_hasher.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <memory>

namespace tw {

namespace {

struct DigestContext {
  DigestContext() : md(EVP_MD_fetch(nullptr, "SHA256", nullptr)), context(EVP_MD_CTX_new()) {}
  ~DigestContext() {
    EVP_MD_CTX_free(context);
    EVP_MD_free(md);
  }
  EVP_MD* md;
  EVP_MD_CTX* context;
};

// The state of an open file: a regular file's allocated size, length and modification date.
bool fileState(int fd, HashOutcome& state, uint64_t& length) {
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return false;
  state.size = static_cast<uint64_t>(st.st_blocks) * 512;
  state.date = modificationSeconds(st);
  length = static_cast<uint64_t>(st.st_size);
  return true;
}

bool hashFile(const HashJob& job, HashReadCall read, const std::atomic<bool>& stopping,
              std::vector<unsigned char>& buffer, DigestContext& digest, HashOutcome& outcome) {
  // Never follow a link swapped in since the scan, and never wait on a pipe.
  const int fd = ::open(job.path.data(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return false;
  uint64_t length = 0;
  bool ok = fileState(fd, outcome, length) && outcome.size == job.size &&
            sameDate(outcome.date, job.scanDate) &&
            EVP_DigestInit_ex2(digest.context, digest.md, nullptr) == 1;
  while (ok) {
    const ssize_t got = read(fd, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      ok = got == 0;
      break;
    }
    outcome.bytesRead += static_cast<uint64_t>(got);
    ok = !stopping.load(std::memory_order_relaxed) &&
         EVP_DigestUpdate(digest.context, buffer.data(), static_cast<size_t>(got)) == 1;
  }
  // A file that grew or was rewritten while it was read has a checksum of no state it was in.
  HashOutcome after;
  uint64_t lengthAfter = 0;
  ok = ok && outcome.bytesRead == length && fileState(fd, after, lengthAfter) &&
       lengthAfter == length && after.size == outcome.size && after.date == outcome.date &&
       EVP_DigestFinal_ex(digest.context, outcome.digest.data(), nullptr) == 1;
  ::close(fd);
  return ok;
}

}  // namespace

bool sameDate(double current, double recorded) {
  return recorded == 0 || std::fabs(current - recorded) < 0.001;
}

double modificationSeconds(const struct stat& st) {
  return static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9;
}

BatchHasher::BatchHasher(const std::vector<HashJob>& jobs, int threads, HashReadCall read)
    : jobs_(jobs),
      read_(read ? read : &::read),
      outcomes_(kBatchesAhead * kBatchSize),
      finished_(kBatchesAhead, 0) {
  const int count = std::max(1, std::min<int>(threads, static_cast<int>(jobs.size())));
  for (int i = 0; i < count; ++i) threads_.emplace_back([this] { run(); });
}

BatchHasher::~BatchHasher() {
  stop();
}

void BatchHasher::stop() {
  {
    std::lock_guard guard(mutex_);
    stopping_ = true;
  }
  workAllowed_.notify_all();
  for (std::thread& thread : threads_)
    if (thread.joinable()) thread.join();
}

bool BatchHasher::waitForBatch(std::size_t batch, const CancelCheck& shouldCancel) {
  const std::size_t end = std::min(jobs_.size(), (batch + 1) * kBatchSize);
  const std::size_t size = end - batch * kBatchSize;
  std::unique_lock lock(mutex_);
  while (finished_[batch % kBatchesAhead] < size) {
    if (shouldCancel) {
      batchDone_.wait_for(lock, std::chrono::milliseconds(20));
      if (finished_[batch % kBatchesAhead] < size && shouldCancel()) return false;
    } else {
      batchDone_.wait(lock);
    }
  }
  return true;
}

void BatchHasher::release(std::size_t batch) {
  {
    std::lock_guard guard(mutex_);
    finished_[batch % kBatchesAhead] = 0;
    released_ = batch + 1;
  }
  workAllowed_.notify_all();
}

void BatchHasher::run() {
  std::vector<unsigned char> buffer(kReadSize);
  DigestContext digest;
  std::unique_lock lock(mutex_);
  for (;;) {
    workAllowed_.wait(lock, [this] {
      return stopping_ || next_ >= jobs_.size() || next_ < (released_ + kBatchesAhead) * kBatchSize;
    });
    if (stopping_ || next_ >= jobs_.size()) return;
    const std::size_t index = next_++;
    lock.unlock();
    HashOutcome outcome;
    outcome.hashed = hashFile(jobs_[index], read_, stopping_, buffer, digest, outcome);
    lock.lock();
    outcomes_[index % outcomes_.size()] = outcome;
    if (++finished_[(index / kBatchSize) % kBatchesAhead] ==
        std::min(kBatchSize, jobs_.size() - index / kBatchSize * kBatchSize))
      batchDone_.notify_all();
  }
}

}  // namespace tw
