// Scan library benchmark: restoring a full History at start-up. Builds a library folder whose
// History holds COUNT retained scans of ITEMS items each, every one of its own location (one scan
// is written, then copied with a new location and date), then times loadCachedScanAsynchronously
// from the call on the "GUI thread" to its completion there, with the files' pages evicted from
// the cache (cold) and in the cache (warm). Then it saves one scan of SAVE_ITEMS items into that
// full library (write, copy, replace, prune). For both it reports the longest time the GUI thread
// spent in one library call or callback.
//
// usage: library_bench WORKDIR [COUNT] [ITEMS] [ROUNDS] [SAVE_ITEMS]
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "services/library_files.h"
#include "services/scan_library.h"
#include "store/scan_store.h"

namespace {

using tw::bench::Clock;
using tw::bench::median;
using tw::bench::secondsSince;

// A scan of `items` entries: folders of 1,000 files, sizes spread so the order is not trivial.
tw::ScanNodeRef makeTree(const std::string& location, int items) {
  tw::ScanNodeRef root = tw::ScanNode::makeRoot(location, true);
  uint64_t total = 0;
  int made = 1;
  for (int f = 0; made < items; ++f) {
    tw::ScanNode* folder = root->createNode("folder " + std::to_string(f), true);
    root->addChild(folder);
    ++made;
    uint64_t folderSize = 0;
    for (int i = 0; i < 999 && made < items; ++i, ++made) {
      tw::ScanNode* file = folder->createNode("file-" + std::to_string(i) + ".dat", false);
      const uint64_t size = 4096ull * (1 + (static_cast<uint64_t>(i) * 7919 + f) % 500);
      file->setSize(size);
      file->setModificationDate(1700000000 - i);
      folder->addChild(file);
      folderSize += size;
    }
    folder->setSize(folderSize);
    total += folderSize;
  }
  root->setSize(total);
  root->setScanDate(1700000000);
  return root;
}

bool copyFile(const std::string& from, const std::string& to) {
  const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  struct stat st;
  bool ok = in >= 0 && out >= 0 && ::fstat(in, &st) == 0;
  for (off_t left = ok ? st.st_size : 0; ok && left > 0;) {
    const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, static_cast<size_t>(left), 0);
    if (n <= 0) ok = false;
    left -= n;
  }
  if (in >= 0) ::close(in);
  if (out >= 0) ::close(out);
  return ok;
}

// Gives a copied scan its own location and date.
bool relocate(const std::string& path, const std::string& location, double date) {
  sqlite3* db = nullptr;
  bool ok = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK;
  const std::string sql = "UPDATE items SET path='" + location +
                          "' WHERE id=(SELECT root_node_id FROM scan_metadata);"
                          "UPDATE scan_metadata SET root_path='" +
                          location + "', scan_date=" + std::to_string(date) + ";";
  ok = ok && sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close_v2(db);
  return ok;
}

void evict(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  ::fdatasync(fd);
  ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  ::close(fd);
}

// The GUI thread of the benchmark: runs posted callbacks and times each.
class MainThread {
 public:
  tw::Executor executor() {
    return [this](std::function<void()> work) {
      std::lock_guard lock(mutex_);
      queue_.push_back(std::move(work));
      posted_.notify_all();
    };
  }
  void runUntil(const bool& done) {
    while (!done) {
      std::function<void()> work;
      {
        std::unique_lock lock(mutex_);
        posted_.wait(lock, [&] { return !queue_.empty(); });
        work = std::move(queue_.front());
        queue_.pop_front();
      }
      const auto start = Clock::now();
      work();
      longestCallback = std::max(longestCallback, secondsSince(start));
    }
  }
  double longestCallback = 0;

 private:
  std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<std::function<void()>> queue_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: library_bench WORKDIR [COUNT] [ITEMS] [ROUNDS]\n");
    return 2;
  }
  const std::string work = argv[1];
  const int count = argc > 2 ? std::atoi(argv[2]) : 200;
  const int items = argc > 3 ? std::atoi(argv[3]) : 100000;
  const int rounds = argc > 4 ? std::atoi(argv[4]) : 3;
  const int saveItems = argc > 5 ? std::atoi(argv[5]) : 1000000;
  ::setenv("XDG_CONFIG_HOME", (work + "/config").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (work + "/data").c_str(), 1);

  MainThread main;
  tw::ScanLibrary::Options options;
  options.mainExecutor = main.executor();
  tw::ScanLibrary library(options);
  const std::string history = library.historyDirectoryPath();

  // Build the History once; later runs with the same sizes reuse it.
  const std::string stamp =
      history + "/.bench-" + std::to_string(count) + "x" + std::to_string(items);
  if (!tw::library::pathExists(stamp)) {
    for (const std::string& old : tw::library::listRetainedScans(history)) ::unlink(old.c_str());
    ::unlink(library.cachePath().c_str());
    const std::string model = work + "/model.sqlite";
    auto start = Clock::now();
    tw::Error error;
    if (!tw::ScanStore::writeRootNode(makeTree("/bench/model", items).get(), model, &error)) {
      std::fprintf(stderr, "write failed: %s\n", error.description.c_str());
      return 1;
    }
    std::printf("wrote one %d-item scan in %.2f s\n", items, secondsSince(start));
    start = Clock::now();
    for (int i = 0; i < count; ++i) {
      char location[64];
      std::snprintf(location, sizeof location, "/bench/location %03d", i);
      const std::string path =
          history + "/" +
          tw::library::retainedScanName(1700000000.0 + i, tw::library::newUUIDString());
      if (!copyFile(model, path) || !relocate(path, location, 1700000000.0 + i)) {
        std::fprintf(stderr, "copy %d failed\n", i);
        return 1;
      }
    }
    copyFile(tw::library::listRetainedScans(history).back(), library.cachePath());
    ::unlink(model.c_str());
    ::close(::open(stamp.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    std::printf("copied it %d times in %.2f s\n", count, secondsSince(start));
  }
  const std::vector<std::string> files = tw::library::listRetainedScans(history);
  std::printf("History: %zu retained scans of %d items\n", files.size(), items);

  auto restore = [&](bool cold) {
    if (cold) {
      for (const std::string& file : files) evict(file);
      evict(library.cachePath());
    }
    bool done = false;
    size_t roots = 0;
    bool alert = false;
    library.setCachedRoot(nullptr);
    main.longestCallback = 0;
    const auto start = Clock::now();
    library.loadCachedScanAsynchronously([&](const tw::RestoreOutcome& outcome) {
      roots = outcome.roots.size();
      alert = outcome.alert.has_value();
      done = true;
    });
    const double calling = secondsSince(start);
    main.runUntil(done);
    const double seconds = secondsSince(start);
    std::printf(
        "%s restore: %.3f s, %zu roots%s, GUI thread busy %.2f ms in the call and "
        "%.2f ms in the longest callback\n",
        cold ? "cold" : "warm", seconds, roots, alert ? ", ALERT" : "", calling * 1000,
        main.longestCallback * 1000);
    return seconds;
  };
  std::vector<double> cold, warm;
  for (int round = 0; round < rounds; ++round) {
    cold.push_back(restore(true));
    warm.push_back(restore(false));
  }
  if (rounds > 0) {
    std::printf("median of %d: cold %.3f s, warm %.3f s\n", rounds, median(cold), median(warm));
  }

  // One save into the full library; History is pruned back to COUNT.
  if (saveItems > 0) {
    // The save prunes the oldest retained scan; keep it aside to put History back afterwards.
    const std::string oldest = work + "/oldest.sqlite";
    copyFile(files.front(), oldest);
    tw::ScanNodeRef root = makeTree("/bench/saved", saveItems);
    bool done = false;
    tw::SaveOutcome saved;
    main.longestCallback = 0;
    const auto start = Clock::now();
    library.acceptCompletedScan(root, [&](const tw::SaveOutcome& outcome) {
      saved = outcome;
      done = true;
    });
    const double calling = secondsSince(start);
    main.runUntil(done);
    std::printf(
        "save of %d items: %.2f s (written %d, cache replaced %d, %zu retained), GUI "
        "thread busy %.2f ms in the call and %.2f ms in the longest callback\n",
        saveItems, secondsSince(start), saved.written, saved.cacheReplaced,
        tw::library::listRetainedScans(history).size(), calling * 1000,
        main.longestCallback * 1000);
    ::unlink(saved.historyPath.c_str());  // leave History as it was built
    library.setCachedRoot(nullptr);
    root.reset();
    copyFile(files.back(), library.cachePath());
    if (!tw::library::pathExists(files.front())) ::rename(oldest.c_str(), files.front().c_str());
    ::unlink(oldest.c_str());
  }
  return 0;
}
