// Shared helpers of the scan database tests: a small sample scan, direct SQL access to check or
// prepare what a file holds, and damage to its pages.
#pragma once

#include <gtest/gtest.h>
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
inline ScanNodeRef makeSampleTree() {
  ScanNodeRef root = ScanNode::makeRoot("/data", true);
  ScanNode* docs = addNode(root.get(), "docs", true, 600);
  addNode(docs, "Annual REPORT.pdf", false, 400, 1000);
  addNode(docs, "a_b", false, 100, 1000);
  addNode(docs, "notes.txt", false, 100, 1000);
  addNode(addNode(root.get(), "cache", true, 300), "big.bin", false, 300, 1000);
  ScanNode* group = addNode(root.get(), kSmallerObjectsName, true, 60);
  group->setAggregate(true);
  addNode(group, "tiny.c", false, 30, 1000);
  addNode(group, "Tiny.h", false, 30, 1000);
  addNode(root.get(), kHiddenSpaceName, false, 40)->setVirtualNode(true);
  root->setSize(1000);
  root->setScanDate(1700000000);
  root->setSourceFingerprint(0xfedcba9876543210ull);
  root->setSourceItemCount(11);
  root->setScanIssues({{"/data/locked", "Permission denied"}});
  return root;
}

// A plain connection for checking or preparing a file.
class Sql {
 public:
  explicit Sql(const std::string& path) {
    EXPECT_EQ(
        sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
        SQLITE_OK);
  }
  ~Sql() { sqlite3_close_v2(db_); }
  void exec(const std::string& sql) {
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK)
        << (message ? message : "") << "\n"
        << sql;
    sqlite3_free(message);
  }
  // The first column of the first row, or nothing when there is none or it is NULL.
  std::optional<std::string> text(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    std::optional<std::string> value;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_type(statement, 0) != SQLITE_NULL)
      value = std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)),
                          sqlite3_column_bytes(statement, 0));
    sqlite3_finalize(statement);
    return value;
  }
  std::optional<int64_t> integer(const std::string& sql) {
    const std::optional<std::string> value = text(sql);
    return value ? std::optional(std::stoll(*value)) : std::nullopt;
  }

 private:
  sqlite3* db_ = nullptr;
};

// Overwrites the root page of the index or table `name` in the closed file `path` with zeros,
// as a damaged disk would: SQLite then fails every query that reads it.
inline void damagePagesOf(const std::string& path, const std::string& name) {
  std::optional<int64_t> page, pageSize;
  {
    Sql sql(path);
    page = sql.integer("SELECT rootpage FROM sqlite_master WHERE name='" + name + "'");
    pageSize = sql.integer("PRAGMA page_size");
  }
  ASSERT_TRUE(page && pageSize) << name;
  std::string bytes = readFile(path);
  bytes.replace(static_cast<std::size_t>((*page - 1) * *pageSize),
                static_cast<std::size_t>(*pageSize), static_cast<std::size_t>(*pageSize), '\0');
  writeFile(path, bytes);
}

}  // namespace tw::test
