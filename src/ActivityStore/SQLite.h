#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "Base/Bytes.h"

namespace quorvane {

// Thin owners of SQLite handles for the activity store. Every failure is thrown as
// ActivityStoreError::sqlite with the result code and sqlite3_errmsg.

struct SQLiteCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
using SQLiteConnection = std::unique_ptr<sqlite3, SQLiteCloser>;

struct SQLiteFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

// Throws ActivityStoreError::sqlite(code, sqlite3_errmsg(db)).
[[noreturn]] void throwSQLiteError(sqlite3* db, int code);

// Runs SQL text of one or more statements that return nothing the caller needs.
void executeSQL(sqlite3* db, const char* sql);

// A prepared statement, finalised when the object dies. Text and blob parameters are bound
// without a copy: the bound bytes must stay alive until the statement is reset.
class SQLiteStatement {
 public:
  SQLiteStatement(sqlite3* db, std::string_view sql);

  // Parameters are numbered from 1.
  void bind(int index, double value);
  void bind(int index, int64_t value);
  void bind(int index, std::string_view text);
  void bind(int index, ByteView blob);

  // True when a row is ready, false when the statement has finished.
  bool step();
  // Steps to the end, for statements that return no rows.
  void run();
  // Makes the statement ready to run again and clears its parameters; also ends the read that an
  // unfinished query holds.
  void reset();

  // Columns of the current row, numbered from 0. Views stay valid until the next step or reset.
  bool isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
  }
  int64_t int64At(int column) const { return sqlite3_column_int64(statement_.get(), column); }
  double doubleAt(int column) const { return sqlite3_column_double(statement_.get(), column); }
  std::string_view textAt(int column) const;
  ByteView blobAt(int column) const;

  // Resets the statement when the scope ends, however it ends.
  class Use {
   public:
    explicit Use(SQLiteStatement& statement) : statement_(statement) {}
    ~Use() { statement_.reset(); }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

   private:
    SQLiteStatement& statement_;
  };

 private:
  void check(int code) const;

  sqlite3* db_;  // borrowed: the connection outlives its statements
  std::unique_ptr<sqlite3_stmt, SQLiteFinalizer> statement_;
};

}  // namespace quorvane
