#include "scan/directory_scanner.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cmath>

#include "scan/walk.h"

namespace tw {

Executor inlineExecutor() {
  return [](std::function<void()> f) { f(); };
}

double walkProgressFraction(uint64_t bytesCounted, uint64_t estimatedTotalBytes) {
  if (estimatedTotalBytes == 0) return -1.0;
  const double x = static_cast<double>(bytesCounted) / static_cast<double>(estimatedTotalBytes);
  return std::min(0.915, 0.92 * (1.0 - std::exp(-2.0 * x)));
}

namespace {
DirectoryScanner::Options withDefaults(DirectoryScanner::Options options) {
  if (!options.callbackExecutor) options.callbackExecutor = inlineExecutor();
  if (!options.layout) options.layout = makeLinuxVolumeLayout();
  if (!options.settings) options.settings = [] { return ScanSettings{}; };
  return options;
}
}  // namespace

DirectoryScanner::DirectoryScanner(Options options) : options_(withDefaults(std::move(options))) {}

DirectoryScanner::~DirectoryScanner() {
  cancel();
  if (worker_.joinable()) {
    if (worker_.get_id() == std::this_thread::get_id()) {
      worker_.detach();
    } else {
      worker_.join();
    }
  }
}

ScanResult DirectoryScanner::scanNow(const std::string& path, uint64_t estimatedTotalBytes,
                                     const ProgressHandler& progress) {
  const ScanSettings settings = options_.settings();
  return runScanWalk(path, options_, settings, estimatedTotalBytes, &progress,
                     state_->cancellationRequested);
}

void DirectoryScanner::scanURL(const std::string& path, uint64_t estimatedTotalBytes,
                               ProgressHandler progress, CompletionHandler completion) {
  if (state_->scanning.exchange(true)) return;
  state_->cancellationRequested.store(false);
  // The previous walk has delivered its completion; its thread is ending or is this one.
  if (worker_.joinable()) {
    if (worker_.get_id() == std::this_thread::get_id()) {
      worker_.detach();
    } else {
      worker_.join();
    }
  }
  worker_ = std::thread([this, path, estimatedTotalBytes, progress = std::move(progress),
                         completion = std::move(completion)] {
    ScanResult result = scanNow(path, estimatedTotalBytes, progress);
    options_.callbackExecutor([state = state_, result = std::move(result), completion] {
      state->scanning.store(false);
      if (completion) completion(result.root, result.error, result.cancelled);
    });
  });
}

SourceSnapshot DirectoryScanner::computeSourceSnapshot(const std::string& path,
                                                       const Options& options) {
  const Options complete = withDefaults(options);
  return runSnapshotWalk(path, complete, complete.settings());
}

void DirectoryScanner::captureSourceSnapshot(const std::string& path, Options options,
                                             std::function<void(SourceSnapshot)> completion) {
  std::thread([path, options = withDefaults(std::move(options)),
               completion = std::move(completion)] {
    // A freshness check yields to scans: nice is per thread on Linux.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 5);
    SourceSnapshot snapshot = computeSourceSnapshot(path, options);
    options.callbackExecutor([snapshot, completion] {
      if (completion) completion(snapshot);
    });
  }).detach();
}

}  // namespace tw
