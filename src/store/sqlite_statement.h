// Thin helpers over SQLite's C interface: database errors as tw::Error values and a prepared
// statement that finalizes itself. Text is always bound as TEXT with its byte length, so paths
// that are not UTF-8 keep their bytes and still compare equal to stored TEXT.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"

namespace tw {

// The code and message of `db`'s last failure under a context label ("%@: %@"); code 14 with
// "Unable to open the database" when there is no connection.
Error sqliteError(sqlite3* db, std::string_view label);
// The same for a known result code, with SQLite's text for that code.
Error sqliteErrorForCode(int code, std::string_view label);

class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* db, const char* sql) { prepare(db, sql); }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool prepare(sqlite3* db, std::string_view sql);
  bool valid() const { return stmt_ != nullptr; }
  void finalize() {
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
  }
  sqlite3_stmt* get() const { return stmt_; }

  // Binding, 1-based positions.
  void bindInt(int index, int64_t value) { sqlite3_bind_int64(stmt_, index, value); }
  void bindDouble(int index, double value) { sqlite3_bind_double(stmt_, index, value); }
  void bindNull(int index) { sqlite3_bind_null(stmt_, index); }
  // The bytes must stay put until the next step.
  void bindText(int index, std::string_view text) {
    sqlite3_bind_text(stmt_, index, text.data() ? text.data() : "", static_cast<int>(text.size()),
                      SQLITE_STATIC);
  }
  void bindTextCopy(int index, std::string_view text) {
    sqlite3_bind_text(stmt_, index, text.data() ? text.data() : "", static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
  }
  void resetAndClear() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
  int step() { return sqlite3_step(stmt_); }

  // Reading the current row, 0-based columns.
  int64_t columnInt(int column) const { return sqlite3_column_int64(stmt_, column); }
  double columnDouble(int column) const { return sqlite3_column_double(stmt_, column); }
  bool columnIsNull(int column) const { return sqlite3_column_type(stmt_, column) == SQLITE_NULL; }
  std::string_view columnText(int column) const;

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// Runs `script` with sqlite3_exec; true on success.
inline bool execScript(sqlite3* db, const char* script) {
  return sqlite3_exec(db, script, nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace tw
