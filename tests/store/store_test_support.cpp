#include "store/store_test_support.h"

#include <gtest/gtest.h>

namespace tw::test {

ScanNodeRef makeSampleTree() {
  ScanNodeRef root = ScanNode::makeRoot("/data", true);
  ScanNode* docs = addNode(root.get(), "docs", true, 600);
  addNode(docs, "Annual REPORT.pdf", false, 400, 1000);
  addNode(docs, "a_b", false, 100, 1000);
  addNode(docs, "notes.txt", false, 100, 1000);
  ScanNode* cache = addNode(root.get(), "cache", true, 300);
  addNode(cache, "big.bin", false, 300, 1000);
  ScanNode* group = addNode(root.get(), std::string(kSmallerObjectsName), true, 60);
  group->setAggregate(true);
  addNode(group, "tiny.c", false, 30, 1000);
  addNode(group, "Tiny.h", false, 30, 1000);
  ScanNode* hidden = addNode(root.get(), std::string(kHiddenSpaceName), false, 40);
  hidden->setVirtualNode(true);
  root->setSize(1000);
  root->setScanDate(1700000000);
  root->setSourceFingerprint(0xfedcba9876543210ull);
  root->setSourceItemCount(11);
  root->setScanIssues({{"/data/locked", "Permission denied"}});
  return root;
}

Sql::Sql(const std::string& path) {
  EXPECT_EQ(
      sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
      SQLITE_OK);
}

Sql::~Sql() {
  sqlite3_close_v2(db_);
}

void Sql::exec(const std::string& sql) {
  char* message = nullptr;
  EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK)
      << (message ? message : "") << "\n"
      << sql;
  sqlite3_free(message);
}

std::optional<int64_t> Sql::integer(const std::string& sql) {
  const std::optional<std::string> value = text(sql);
  return value ? std::optional(std::stoll(*value)) : std::nullopt;
}

std::optional<std::string> Sql::text(const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  std::optional<std::string> value;
  if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_type(statement, 0) != SQLITE_NULL)
    value = std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)),
                        sqlite3_column_bytes(statement, 0));
  sqlite3_finalize(statement);
  return value;
}

void damagePagesOf(const std::string& path, const std::string& name) {
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
