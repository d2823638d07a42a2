// Scan engine: the directory scanner.
//
// DirectoryScanner walks one disk or folder and builds the ScanNode tree the rest of Tarnwell
// shows and stores. It decides how every byte is counted: allocated sizes, hard links once, clones
// charged to one copy, small files grouped on whole-disk scans, mount points below the root left
// out, unlisted space shown as "hidden space…", and unreadable places recorded as scan issues. It
// also takes the source snapshot, the cheap change fingerprint of a folder, and applies the user's
// exclusion settings. It owns nothing after a walk: the finished tree is handed to the caller.
//
// Callbacks go through the Executor given at construction: the application posts them to its GUI
// thread, tests and the command-line tool run them inline.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/volume_layout.h"
#include "scan/scan_node.h"

namespace tw {

// The settings a walk reads when it starts (preference keys in parentheses).
struct ScanSettings {
  bool skipPackages = true;                       // TWSkipApplicationBundlesAndPackages
  std::vector<std::string> excludedPaths;         // TWExcludedPaths
  std::vector<std::string> excludedFilePatterns;  // TWExcludedFilePatterns
};

// Runs a callback somewhere: on the GUI thread, or inline.
using Executor = std::function<void(std::function<void()>)>;
Executor inlineExecutor();

// Progress: bytes counted, items visited, and the fraction done (-1 when there is no estimate).
using ProgressHandler = std::function<void(uint64_t bytes, uint64_t items, double fraction)>;
// Completion: the root on success; a cancelled walk gives (null, nothing, true).
using CompletionHandler =
    std::function<void(ScanNodeRef root, std::optional<Error> error, bool cancelled)>;

// Figures about one walk, for the command-line tool and the benchmarks.
struct ScanStatistics {
  uint64_t itemsVisited = 0;
  double walkSeconds = 0;
  double sortSeconds = 0;
};

struct ScanResult {
  ScanNodeRef root;
  std::optional<Error> error;
  bool cancelled = false;
  ScanStatistics statistics;
};

struct SourceSnapshot {
  uint64_t fingerprint = 0;
  int64_t itemCount = 0;
  std::optional<Error> error;  // the first error met; it never stops the snapshot
};

// The issue recorded for a protected location that measured empty.
inline constexpr int kProtectedLocationErrorCode = 13;
inline constexpr const char* kProtectedLocationMessage =
    "This protected location could not be measured. Check Full Disk Access and scan again.";
// Limit of recorded issues per scan.
inline constexpr std::size_t kMaximumScanIssues = 500;
// Progress is reported every this many items.
inline constexpr uint64_t kProgressInterval = 512;

class DirectoryScanner {
 public:
  struct Options {
    std::shared_ptr<const VolumeLayout> layout;
    Executor callbackExecutor;               // defaults to inline
    std::function<ScanSettings()> settings;  // read at the start of every walk
    int threads = 2;  // threads making system calls: the walk and threads reading ahead of it
  };

  explicit DirectoryScanner(Options options);
  ~DirectoryScanner();  // cancels a running walk and waits for it
  DirectoryScanner(const DirectoryScanner&) = delete;
  DirectoryScanner& operator=(const DirectoryScanner&) = delete;

  // State.
  bool isScanning() const { return state_->scanning.load(); }
  bool isCancellationRequested() const { return state_->cancellationRequested.load(); }
  void setCancellationRequested(bool on) { state_->cancellationRequested.store(on); }
  // Asks a running walk to stop at its next item; safe from any thread.
  void cancel() { state_->cancellationRequested.store(true); }

  // Scanning.
  // Starts a walk on a background thread; ignored while one is running. Progress and completion
  // arrive through the executor. `estimatedTotalBytes` is 0 when unknown.
  void scanURL(const std::string& path, uint64_t estimatedTotalBytes, ProgressHandler progress,
               CompletionHandler completion);
  // Walks on the calling thread (progress still goes through the executor) and returns the result.
  ScanResult scanNow(const std::string& path, uint64_t estimatedTotalBytes,
                     const ProgressHandler& progress);

  // Source snapshot.
  // The fingerprint of a folder without building a tree, on a background thread.
  static void captureSourceSnapshot(const std::string& path, Options options,
                                    std::function<void(SourceSnapshot)> completion);
  static SourceSnapshot computeSourceSnapshot(const std::string& path, const Options& options);

 private:
  // Shared with callbacks still queued on the executor after the scanner is gone.
  struct State {
    std::atomic<bool> scanning{false};
    std::atomic<bool> cancellationRequested{false};
  };
  Options options_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
  std::thread worker_;
};

// The fraction shown while walking: 0.92 × (1 − e^(−2 × bytes ÷ estimate)), at most 0.915, or −1
// without an estimate.
double walkProgressFraction(uint64_t bytesCounted, uint64_t estimatedTotalBytes);

}  // namespace tw
