#include "ActivityStore/SQLite.h"

#include "ActivityStore/ActivityStoreError.h"

namespace quorvane {

void throwSQLiteError(sqlite3* db, int code) {
  throw ActivityStoreError::sqlite(code, db ? sqlite3_errmsg(db) : sqlite3_errstr(code));
}

void executeSQL(sqlite3* db, const char* sql) {
  int code = sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) throwSQLiteError(db, code);
}

SQLiteStatement::SQLiteStatement(sqlite3* db, std::string_view sql) : db_(db) {
  sqlite3_stmt* prepared = nullptr;
  const int code = sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
  statement_.reset(prepared);
  check(code);
}

void SQLiteStatement::check(int code) const {
  if (code != SQLITE_OK) throwSQLiteError(db_, code);
}

void SQLiteStatement::bind(int index, double value) {
  check(sqlite3_bind_double(statement_.get(), index, value));
}

void SQLiteStatement::bind(int index, int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), index, value));
}

void SQLiteStatement::bind(int index, std::string_view text) {
  check(sqlite3_bind_text64(statement_.get(), index, text.data(), text.size(), SQLITE_STATIC,
                            SQLITE_UTF8));
}

void SQLiteStatement::bind(int index, ByteView blob) {
  // A zero-length blob needs a real pointer, or SQLite binds NULL.
  static const uint8_t kEmpty = 0;
  check(sqlite3_bind_blob64(statement_.get(), index, blob.empty() ? &kEmpty : blob.data(),
                            blob.size(), SQLITE_STATIC));
}

bool SQLiteStatement::step() {
  int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  throwSQLiteError(db_, code);
}

void SQLiteStatement::run() {
  while (step()) {
  }
}

void SQLiteStatement::reset() {
  // The error of a failed step was reported by step; reset repeats it and is ignored here.
  sqlite3_reset(statement_.get());
  sqlite3_clear_bindings(statement_.get());
}

std::string_view SQLiteStatement::textAt(int column) const {
  const unsigned char* text = sqlite3_column_text(statement_.get(), column);
  size_t size = static_cast<size_t>(sqlite3_column_bytes(statement_.get(), column));
  return text ? std::string_view(reinterpret_cast<const char*>(text), size) : std::string_view();
}

ByteView SQLiteStatement::blobAt(int column) const {
  const void* blob = sqlite3_column_blob(statement_.get(), column);
  size_t size = static_cast<size_t>(sqlite3_column_bytes(statement_.get(), column));
  return blob ? ByteView(static_cast<const uint8_t*>(blob), size) : ByteView();
}

}  // namespace quorvane
