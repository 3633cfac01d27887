#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "ActivityStore/ActivityStore.h"
#include "ActivityStore/ActivityStoreError.h"
#include "ActivityStore/ChainHasher.h"
#include "ActivityStore/SQLite.h"

namespace quorvane {

// The connection and what is used with it; touched only on the store's queue.
struct ActivityStore::Database {
  struct Inserted {
    ChainEnd head;
    // The start to record after the commit, when the anchor had none.
    std::optional<ChainEnd> start;
  };

  Database(const std::filesystem::path& path, const std::optional<SecureBytes>& chainKey,
           bool syncBeforeAnchor);

  void begin() { run(beginImmediate); }
  void commit() { run(commitStatement); }
  void rollbackQuietly() noexcept {
    try {
      run(rollbackStatement);
    } catch (const ActivityStoreError&) {
      // Nothing was committed; SQLite rolls back on its own when it cannot.
    }
  }
  static void run(SQLiteStatement& statement) {
    SQLiteStatement::Use use(statement);
    statement.run();
  }

  // Inside a write transaction: links the row to the newest row, or to the anchor's `head` when
  // the anchor knows a row at least as new (rows removed from the end then stay visible). With
  // `startMissing`, the start to record is read after the insert.
  Inserted insert(std::string_view json, double date, const std::optional<ChainEnd>& head,
                  bool startMissing);
  double purgeBound(double cutoff);

  SQLiteConnection connection;
  ChainHasher hasher;
  SQLiteStatement newestRow, oldestRow, insertRow;
  SQLiteStatement beginImmediate, commitStatement, rollbackStatement;
};

// The id and hash (or prev) of the first row `statement` yields, if any.
std::optional<ChainEnd> readEnd(SQLiteStatement& statement);

}  // namespace quorvane
