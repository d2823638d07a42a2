// Shared helpers of the scan database tests: small trees built in memory, file bytes, and direct
// SQL access to check what a file holds.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "scan/scan_node.h"

namespace tw {
// Readable errors in test failures.
inline void PrintTo(const Error& error, std::ostream* out) {
  *out << error.domain << " " << error.code << " \"" << error.description << "\"";
}
}  // namespace tw

namespace tw::test {

// Adds a child to `parent` and returns it.
ScanNode* addNode(ScanNode* parent, std::string_view name, bool directory, uint64_t size,
                  double modificationDate = 0);

// A small sorted scan of "/data" (sizes in bytes, files modified at 1000 s):
//   /data 1000: docs/ 600 ("Annual REPORT.pdf" 400, "a_b" 100, "notes.txt" 100),
//   cache/ 300 ("big.bin" 300), "smaller objects…" 60 ("tiny.c" 30, "Tiny.h" 30),
//   "hidden space…" 40; one scan issue, scan date 1700000000, 11 items.
ScanNodeRef makeSampleTree();
// A file or folder at `relative` below `root`, making missing folders on the way.
ScanNode* addPath(ScanNode* root, std::string_view relative, bool directory, uint64_t size);

std::string readFileBytes(const std::string& path);
void writeFileBytes(const std::string& path, std::string_view bytes);
std::vector<std::string> listFolder(const std::string& folder);

// Opens a plain connection for checking or preparing a file.
class Sql {
 public:
  explicit Sql(const std::string& path);
  ~Sql();
  void exec(const std::string& sql);
  std::optional<int64_t> integer(const std::string& sql);
  std::optional<std::string> text(const std::string& sql);
  sqlite3* db() const { return db_; }

 private:
  sqlite3* db_ = nullptr;
};

// Names of the nodes, in order.
std::vector<std::string> namesOf(const std::vector<ScanNodeRef>& nodes);
std::vector<std::string> namesOf(const std::vector<ScanNode*>& nodes);

}  // namespace tw::test
