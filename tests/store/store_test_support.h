// Shared helpers of the scan database tests: a small sample scan, and direct SQL access to check
// what a file holds.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "platform/error.h"
#include "support/scan_trees.h"
#include "support/temp_tree.h"

namespace tw {
// Readable errors in test failures.
inline void PrintTo(const Error& error, std::ostream* out) {
  *out << error.domain << " " << error.code << " \"" << error.description << "\"";
}
}  // namespace tw

namespace tw::test {

// A small sorted scan of "/data" (sizes in bytes, files modified at 1000 s):
//   /data 1000: docs/ 600 ("Annual REPORT.pdf" 400, "a_b" 100, "notes.txt" 100),
//   cache/ 300 ("big.bin" 300), "smaller objects…" 60 ("tiny.c" 30, "Tiny.h" 30),
//   "hidden space…" 40; one scan issue, scan date 1700000000, 11 items.
ScanNodeRef makeSampleTree();

// Opens a plain connection for checking or preparing a file.
class Sql {
 public:
  explicit Sql(const std::string& path);
  ~Sql();
  void exec(const std::string& sql);
  std::optional<int64_t> integer(const std::string& sql);
  std::optional<std::string> text(const std::string& sql);

 private:
  sqlite3* db_ = nullptr;
};

// Overwrites the root page of the index or table `name` in the closed file `path` with zeros,
// as a damaged disk would: SQLite then fails every query that reads it.
void damagePagesOf(const std::string& path, const std::string& name);

}  // namespace tw::test
