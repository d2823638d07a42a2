#include "store/sqlite_statement.h"

namespace tw {

namespace {

Error makeError(int code, std::string_view label, std::string_view message) {
  std::string description(label);
  description.append(": ");
  description.append(message);
  return Error{kSQLiteErrorDomain, code, std::move(description)};
}

}  // namespace

Error sqliteError(sqlite3* db, std::string_view label) {
  if (!db) return makeError(SQLITE_CANTOPEN, label, "Unable to open the database");
  return makeError(sqlite3_errcode(db), label, sqlite3_errmsg(db));
}

Error sqliteErrorForCode(int code, std::string_view label) {
  return makeError(code, label, sqlite3_errstr(code));
}

bool Statement::prepare(sqlite3* db, std::string_view sql) {
  sqlite3_finalize(stmt_);
  stmt_ = nullptr;
  return sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &stmt_, nullptr) ==
             SQLITE_OK &&
         stmt_;
}

std::string_view Statement::columnText(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
  if (!text) return {};
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

}  // namespace tw
