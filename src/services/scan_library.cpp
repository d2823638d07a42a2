#include "services/scan_library.h"

#include <fcntl.h>
#include <unistd.h>

#include <QThreadPool>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <mutex>

#include "platform/paths.h"
#include "services/gui_executor.h"
#include "services/library_files.h"
#include "services/library_preferences.h"
#include "store/scan_store.h"
#include "ui/placeholder.h"

namespace tw {

namespace {

void logToStandardError(const std::string& line) {
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
}

// Two scan dates name the same scan when they lie less than a second apart.
bool sameScanDate(double a, double b) {
  return std::fabs(a - b) < 1.0;
}

}  // namespace

struct ScanLibrary::State {
  std::string folder;
  Executor mainExecutor;
  Executor backgroundExecutor;
  const FileSystemCalls* calls = nullptr;
  std::function<void(const std::string&)> log;
  Handlers handlers;
  ScanNodeRef cachedRoot;
  uint64_t scanGeneration = 0;
  // Replacing the cache: the GUI thread numbers its choices in order, and the pool puts a copy in
  // place only when no later choice was put in place before it.
  struct CacheOrder {
    std::mutex mutex;
    uint64_t applied = 0;
  };
  uint64_t replaceTickets = 0;
  std::shared_ptr<CacheOrder> cacheOrder = std::make_shared<CacheOrder>();

  std::string historyFolder() const {
    return appendPathComponent(folder, library::kHistoryFolderName);
  }
  std::string cache() const { return appendPathComponent(folder, library::kCacheFileName); }

  // Drops a reference on the pool, so freeing a large tree never stalls the GUI thread.
  void releaseInBackground(ScanNodeRef root) {
    if (!root) return;
    backgroundExecutor([root = std::move(root)]() mutable { root.reset(); });
  }

  void setCachedRoot(ScanNodeRef root) {
    ScanNodeRef previous = std::move(cachedRoot);
    cachedRoot = std::move(root);
    if (previous != cachedRoot) releaseInBackground(std::move(previous));
  }

  // The "Forget" answer: remembers the result's date for its location and takes it off screen.
  void forget(const ScanNodeRef& root) {
    const std::string location = standardizeLocation(root->path());
    const double date = root->scanDate() > 0 ? root->scanDate() : library::currentTime();
    library::setForgottenScanDate(location, date);
    if (cachedRoot && standardizeLocation(cachedRoot->path()) == location) setCachedRoot(nullptr);
    if (handlers.forgetCachedScanRoot) handlers.forgetCachedScanRoot(root);
  }
};

ScanLibrary::ScanLibrary() : ScanLibrary(Options{}) {}

ScanLibrary::ScanLibrary(Options options) : state_(std::make_shared<State>()) {
  state_->folder =
      options.folder.empty() ? library::defaultFolderPath() : standardizePath(options.folder);
  state_->mainExecutor = options.mainExecutor ? std::move(options.mainExecutor) : inlineExecutor();
  state_->backgroundExecutor =
      options.backgroundExecutor ? std::move(options.backgroundExecutor) : threadPoolExecutor();
  state_->calls = options.calls ? options.calls : &FileSystemCalls::system();
  state_->log = options.log ? std::move(options.log) : logToStandardError;
}

ScanLibrary::~ScanLibrary() {
  // The tree of the current result may be large: free it on the pool.
  state_->releaseInBackground(std::move(state_->cachedRoot));
}

void ScanLibrary::setHandlers(Handlers handlers) {
  state_->handlers = std::move(handlers);
}

std::string ScanLibrary::libraryFolderPath() const {
  library::createFolders(state_->folder);
  return state_->folder;
}

std::string ScanLibrary::cachePath() const {
  return appendPathComponent(libraryFolderPath(), library::kCacheFileName);
}

std::string ScanLibrary::legacyCachePath() const {
  return appendPathComponent(libraryFolderPath(), library::kLegacyCacheFileName);
}

std::string ScanLibrary::scanMarkerPath() const {
  return appendPathComponent(libraryFolderPath(), library::kScanMarkerFileName);
}

std::string ScanLibrary::historyDirectoryPath() const {
  const std::string path = appendPathComponent(libraryFolderPath(), library::kHistoryFolderName);
  library::createFolders(path);
  return path;
}

const ScanNodeRef& ScanLibrary::cachedRoot() const {
  return state_->cachedRoot;
}

void ScanLibrary::setCachedRoot(ScanNodeRef root) {
  state_->setCachedRoot(std::move(root));
}

uint64_t ScanLibrary::scanGeneration() const {
  return state_->scanGeneration;
}

void ScanLibrary::beginPersistentScan() {
  ++state_->scanGeneration;
  // An empty file: creating it is all there is to write.
  const int fd = ::open(scanMarkerPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd >= 0) ::close(fd);
}

void ScanLibrary::endPersistentScanCompleted(bool) {
  ::unlink(scanMarkerPath().c_str());
}

bool ScanLibrary::discardInterruptedScanIfNeeded() {
  return ::unlink(scanMarkerPath().c_str()) == 0;
}

void ScanLibrary::acceptCompletedScan(const ScanNodeRef& root,
                                      std::function<void(const SaveOutcome&)> done) {
  if (!root) return;
  const std::string location = standardizeLocation(root->path());
  if (!location.empty()) library::removeForgottenScanDate(location);
  state_->setCachedRoot(root);
  saveCachedScanForRoot(root, state_->scanGeneration, std::move(done));
}

void ScanLibrary::saveCachedScanForRoot(const ScanNodeRef& root, uint64_t generation,
                                        std::function<void(const SaveOutcome&)> done) {
  if (!root) return;
  const std::string folder = libraryFolderPath();
  const std::string historyFolder = historyDirectoryPath();
  const std::string pending =
      appendPathComponent(folder, library::pendingCacheName(library::newUUIDString()));
  const std::string history = appendPathComponent(
      historyFolder, library::retainedScanName(library::currentTime(), library::newUUIDString()));

  struct Job {
    SaveOutcome outcome;
    std::shared_ptr<ScanStore> store;
    int64_t storedRootID = 0;
    uint64_t replaceTicket = 0;  // nonzero: the GUI thread chose this copy as the cache
  };
  auto job = std::make_shared<Job>();
  job->outcome.historyPath = history;
  std::weak_ptr<State> weak = state_;
  const Executor main = state_->mainExecutor;
  const Executor background = state_->backgroundExecutor;
  const FileSystemCalls* calls = state_->calls;
  const auto log = state_->log;
  const std::string cache = state_->cache();

  // Last step, on the pool: put the copy in place when the GUI thread chose it and no later choice
  // got there first, drop the pending file, make the rename durable and prune History. The rename
  // may free a large old cache, and the root's last reference may go here too: both stay away
  // from the GUI thread.
  auto finish = [main, calls, log, folder, historyFolder, pending, cache, job, done,
                 order = state_->cacheOrder](ScanNodeRef root) mutable {
    if (job->replaceTicket != 0) {
      std::lock_guard lock(order->mutex);
      if (job->replaceTicket > order->applied) {
        Error error;
        if (library::replaceFile(pending, cache, *calls, &error)) {
          order->applied = job->replaceTicket;
          job->outcome.cacheReplaced = true;
        } else {
          log(fillPlaceholder(kReplaceCacheFailedLog, error.description));
        }
      }
    }
    calls->unlink(pending.c_str());
    if (job->outcome.cacheReplaced) library::flushFolder(folder, *calls);
    library::pruneRetainedScans(historyFolder);
    root.reset();
    main([job, done = std::move(done)] {
      if (done) done(job->outcome);
    });
  };

  background([=, root = root]() mutable {
    Error error;
    job->outcome.written = ScanStore::writeRootNode(root.get(), history, *calls, &error);
    if (!job->outcome.written) {
      log(fillPlaceholder(kWriteScanFailedLog, error.description));
    } else {
      job->outcome.copied = library::copyFileDurably(history, pending, *calls, &error);
      if (!job->outcome.copied) log(fillPlaceholder(kCopyScanFailedLog, error.description));
      job->store = ScanStore::open(history);
      if (job->store) {
        if (ScanNodeRef stored = job->store->rootNode())
          job->storedRootID = stored->databaseNodeID();
      }
    }
    main([=, root = std::move(root)]() mutable {
      std::shared_ptr<State> state = weak.lock();
      if (!state) {
        calls->unlink(pending.c_str());
        return;
      }
      if (job->outcome.written && job->storedRootID != 0) {
        // From now on the result reads through its retained copy, not through the cache.
        root->setScanStore(job->store);
        root->setDatabaseNodeID(job->storedRootID);
        job->outcome.bound = true;
      }
      job->store.reset();
      if (generation == state->scanGeneration && job->outcome.copied && state->cachedRoot == root) {
        job->replaceTicket = ++state->replaceTickets;
      }
      background([finish = std::move(finish), root = std::move(root)]() mutable {
        finish(std::move(root));
      });
    });
  });
}

void ScanLibrary::loadCachedScanAsynchronously(std::function<void(const RestoreOutcome&)> done) {
  const std::map<std::string, double> forgotten = library::forgottenScanDates();
  const std::string cache = cachePath();
  const std::string legacyCache = legacyCachePath();
  const std::string historyFolder = state_->historyFolder();
  std::weak_ptr<State> weak = state_;
  const Executor main = state_->mainExecutor;

  state_->backgroundExecutor([=, done = std::move(done)]() mutable {
    std::optional<Error> problem;
    auto remember = [&problem](const Error& error) {
      if (!problem) problem = error;
    };
    if (!library::pathExists(cache) && library::pathExists(legacyCache)) {
      Error error;
      if (ScanStore::migrateArchive(legacyCache, cache, &error)) {
        ::unlink(legacyCache.c_str());
      } else {
        remember(error);
      }
    }
    library::createFolders(historyFolder);
    std::vector<std::string> candidates =
        library::convertLegacyRetainedScans(historyFolder, &problem);
    if (library::pathExists(cache)) candidates.push_back(cache);

    // The newest scan of each location; on equal dates the first seen stays, so a History file
    // wins over its own cache copy.
    struct Kept {
      std::string path;
      double date;
    };
    std::vector<Kept> kept;
    std::map<std::string, std::size_t> keptByLocation;
    for (const std::string& candidate : candidates) {
      Error error;
      const std::optional<ScanMetadata> metadata = ScanStore::metadataAt(candidate, &error);
      if (!metadata) {
        remember(error);
        continue;
      }
      const std::string location = standardizeLocation(metadata->locationPath);
      if (location.empty() || !metadata->scanDate) continue;
      const double date = *metadata->scanDate;
      const auto forgottenDate = forgotten.find(location);
      if (forgottenDate != forgotten.end() && date <= forgottenDate->second) continue;
      const auto [slot, added] = keptByLocation.emplace(location, kept.size());
      if (added) {
        kept.push_back({candidate, date});
      } else if (kept[slot->second].date < date) {
        kept[slot->second] = {candidate, date};
      }
    }
    std::stable_sort(kept.begin(), kept.end(),
                     [](const Kept& a, const Kept& b) { return a.date > b.date; });

    RestoreOutcome outcome;
    for (const Kept& candidate : kept) {
      Error error;
      std::shared_ptr<ScanStore> store = ScanStore::open(candidate.path, &error);
      ScanNodeRef root = store ? store->rootNode() : nullptr;
      if (root) {
        outcome.roots.push_back(std::move(root));
      } else if (!problem) {
        problem = store ? store->lastReadError() : std::optional<Error>(error);
      }
    }
    if (problem) {
      outcome.alert =
          LibraryAlert{kUnreadableScanMessage,
                       fillPlaceholder(kUnreadableScanInformativeFormat, problem->description)};
    }

    main([weak, outcome = std::move(outcome), done = std::move(done)] {
      std::shared_ptr<State> state = weak.lock();
      if (!state) return;
      if (outcome.alert && state->handlers.showAlert) state->handlers.showAlert(*outcome.alert);
      if (!outcome.roots.empty()) {
        if (!state->cachedRoot) state->cachedRoot = outcome.roots.front();
        if (state->handlers.restoreCachedScanRoots) {
          state->handlers.restoreCachedScanRoots(outcome.roots);
        }
      }
      if (done) done(outcome);
    });
  });
}

void ScanLibrary::forgetScanResult(const ScanNodeRef& root, ForgetChoice choice,
                                   std::function<void(std::optional<LibraryAlert>)> done) {
  if (!root || choice == ForgetChoice::kCancel) {
    if (done) done(std::nullopt);
    return;
  }
  if (choice == ForgetChoice::kForget) {
    state_->forget(root);
    if (done) done(std::nullopt);
    return;
  }

  const std::string location = standardizeLocation(root->path());
  const std::optional<double> date =
      root->scanDate() > 0 ? std::optional<double>(root->scanDate()) : std::nullopt;
  const std::string historyFolder = historyDirectoryPath();
  const std::string cache = cachePath();
  const std::shared_ptr<ScanStore> store = root->scanStore();
  const std::string storePath = store ? standardizePath(store->path()) : std::string();
  std::weak_ptr<State> weak = state_;
  const Executor main = state_->mainExecutor;

  state_->backgroundExecutor([=, done = std::move(done)]() mutable {
    std::optional<LibraryAlert> alert;
    auto failed = [](const char* message, const Error& error, const char* fallback) {
      return LibraryAlert{message, error.description.empty() ? fallback : error.description};
    };
    // The result's own file when it reads through History, else a retained scan of the same
    // location and date.
    std::string file;
    if (!storePath.empty() && parentPath(storePath) == standardizePath(historyFolder)) {
      file = storePath;
    } else if (date) {
      for (const std::string& candidate : library::listRetainedScans(historyFolder)) {
        const std::optional<ScanMetadata> metadata = ScanStore::metadataAt(candidate);
        if (metadata && metadata->scanDate &&
            standardizeLocation(metadata->locationPath) == location &&
            sameScanDate(*metadata->scanDate, *date)) {
          file = candidate;
          break;
        }
      }
    }
    if (!file.empty() && ::unlink(file.c_str()) != 0 && errno != ENOENT) {
      alert = failed(kDeleteFailedMessage, lastPosixError(), kDeleteFailedFallbackText);
    }
    if (!alert) {
      const std::optional<ScanMetadata> metadata = ScanStore::metadataAt(cache);
      if (metadata && standardizeLocation(metadata->locationPath) == location &&
          (!metadata->scanDate || !date || sameScanDate(*metadata->scanDate, *date)) &&
          ::unlink(cache.c_str()) != 0 && errno != ENOENT) {
        alert = failed(kCacheDeleteFailedMessage, lastPosixError(), kCacheDeleteFailedFallbackText);
      }
    }
    main([weak, root, alert, done = std::move(done)] {
      std::shared_ptr<State> state = weak.lock();
      if (!state) return;
      if (alert) {
        if (state->handlers.showAlert) state->handlers.showAlert(*alert);
      } else {
        state->forget(root);
      }
      if (done) done(alert);
    });
  });
}

void ScanLibrary::removeAllScansForPath(const std::string& path,
                                        std::function<void(std::optional<Error>)> completion) {
  const std::string location = standardizeLocation(path);
  if (location.empty()) {
    if (completion) completion(std::nullopt);
    return;
  }
  const std::string historyFolder = historyDirectoryPath();
  const std::string cache = cachePath();
  std::weak_ptr<State> weak = state_;
  const Executor main = state_->mainExecutor;

  state_->backgroundExecutor([=, completion = std::move(completion)]() mutable {
    std::vector<std::string> files;
    auto matches = [&location](const std::string& file) {
      const std::optional<ScanMetadata> metadata = ScanStore::metadataAt(file);
      return metadata && standardizeLocation(metadata->locationPath) == location;
    };
    for (const std::string& candidate : library::listRetainedScans(historyFolder)) {
      if (matches(candidate)) files.push_back(candidate);
    }
    if (library::pathExists(cache) && matches(cache)) files.push_back(cache);
    std::optional<Error> firstError;
    for (const std::string& file : files) {
      if (::unlink(file.c_str()) != 0 && errno != ENOENT && !firstError) {
        firstError = lastPosixError();
      }
    }
    main([weak, location, firstError, completion = std::move(completion)] {
      std::shared_ptr<State> state = weak.lock();
      if (!state) return;
      if (!firstError) {
        if (state->cachedRoot && standardizeLocation(state->cachedRoot->path()) == location) {
          state->setCachedRoot(nullptr);
        }
        library::removeForgottenScanDate(location);
      }
      if (completion) completion(firstError);
    });
  });
}

std::map<std::string, double> ScanLibrary::forgottenScanDates() const {
  return library::forgottenScanDates();
}

int ScanLibrary::removeStalePendingFiles(std::time_t now) const {
  return library::removeStalePendingFiles(libraryFolderPath(), now) +
         library::removeStalePendingFiles(historyDirectoryPath(), now);
}

std::string ScanLibrary::standardizeLocation(const std::string& path) {
  if (path.empty()) return path;
  return standardizePath(expandTilde(path, homeDirectory()));
}

}  // namespace tw
