// Collects the problems of one walk: at most 500, none twice, in the order met.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/error.h"
#include "scan/scan_node.h"

namespace tw {

inline constexpr const char* kUnreadableItemMessage = "The item could not be read.";

class IssueRecorder {
 public:
  explicit IssueRecorder(std::string rootPath) : rootPath_(std::move(rootPath)) {}
  // An empty path stands for the root; a missing or empty description reads as
  // "The item could not be read.".
  void record(std::string_view path, const Error* error);
  std::vector<ScanIssue> take() { return std::move(issues_); }
  std::size_t size() const { return issues_.size(); }

 private:
  std::string rootPath_;
  std::vector<ScanIssue> issues_;
  std::unordered_set<std::string> recorded_;
};

}  // namespace tw
