#include "scan/issue_recorder.h"

#include "scan/directory_scanner.h"

namespace tw {

void IssueRecorder::record(std::string_view path, const Error* error) {
  if (issues_.size() >= kMaximumScanIssues) return;
  ScanIssue issue;
  issue.path = path.empty() ? rootPath_ : std::string(path);
  issue.message =
      error && !error->description.empty() ? error->description : kUnreadableItemMessage;
  if (!recorded_.insert(issue.path + "\n" + issue.message).second) return;
  issues_.push_back(std::move(issue));
}

}  // namespace tw
