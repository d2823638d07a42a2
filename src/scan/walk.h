// One walk of a folder tree: the per-item rules of a scan, or the fingerprint-only pass of a
// source snapshot. Used by DirectoryScanner; one thread applies every rule, in pre-order.
#pragma once

#include <atomic>

#include "scan/directory_scanner.h"

namespace tw {

ScanResult runScanWalk(const std::string& path, const DirectoryScanner::Options& options,
                       const ScanSettings& settings, uint64_t estimatedTotalBytes,
                       const ProgressHandler* progress, const std::atomic<bool>& cancel);

SourceSnapshot runSnapshotWalk(const std::string& path, const DirectoryScanner::Options& options,
                               const ScanSettings& settings);

}  // namespace tw
