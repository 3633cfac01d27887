#include "ActivityStore/ActivityDatabase.h"

#include <fcntl.h>
#include <unistd.h>

#include "ActivityStore/ActivityStoreError.h"

namespace quorvane {
namespace {

constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL;\n"
    "CREATE TABLE IF NOT EXISTS activity (\n"
    "  id INTEGER PRIMARY KEY AUTOINCREMENT,\n"
    "  date REAL NOT NULL,\n"
    "  json TEXT NOT NULL,\n"
    "  prev BLOB NOT NULL,\n"
    "  hash BLOB NOT NULL\n"
    ");\n"
    "CREATE INDEX IF NOT EXISTS activity_date ON activity(date);";

// A commit reaches the disk before append returns, so an answered request cannot vanish from the
// log when the power goes.
constexpr const char* kSyncEachCommit = "PRAGMA synchronous=FULL;";
// Commits are written to the WAL without waiting for the disk; the background recorder syncs the
// files before it records a head (and a checkpoint syncs them too), so the anchor never names a
// row that a power loss could take.
constexpr const char* kSyncBeforeAnchor = "PRAGMA synchronous=NORMAL;";

constexpr std::string_view kNewestRow = "SELECT id, hash FROM activity ORDER BY id DESC LIMIT 1";
constexpr std::string_view kOldestRow = "SELECT id, prev FROM activity ORDER BY id LIMIT 1";
constexpr std::string_view kInsert =
    "INSERT INTO activity(date, json, prev, hash) VALUES (?,?,?,?)";
constexpr std::string_view kFirstKeptID = "SELECT min(id) FROM activity WHERE date >= ?";
constexpr std::string_view kEarliestDateFrom = "SELECT min(date) FROM activity WHERE id >= ?";

// A new file is made readable by its owner only; SQLite gives its -wal and -shm files the same
// mode.
void createPrivately(const std::filesystem::path& path) {
  if (path.empty() || path == ":memory:") return;
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd >= 0) ::close(fd);
}

}  // namespace

std::optional<ChainEnd> readEnd(SQLiteStatement& statement) {
  SQLiteStatement::Use use(statement);
  if (!statement.step()) return std::nullopt;
  ByteView hash = statement.blobAt(1);
  return ChainEnd{statement.int64At(0), Bytes(hash.begin(), hash.end())};
}

ActivityStore::Database::Database(const std::filesystem::path& path,
                                  const std::optional<SecureBytes>& chainKey, bool syncBeforeAnchor)
    : connection([&] {
        createPrivately(path);
        sqlite3* raw = nullptr;
        int code = sqlite3_open_v2(
            path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
            nullptr);
        SQLiteConnection owned(raw);
        if (code != SQLITE_OK)
          throw ActivityStoreError::sqlite(code, raw ? sqlite3_errmsg(raw) : "open");
        sqlite3_busy_timeout(raw, kBusyTimeoutMilliseconds);
        executeSQL(raw, kSchema);
        executeSQL(raw, syncBeforeAnchor ? kSyncBeforeAnchor : kSyncEachCommit);
        return owned;
      }()),
      hasher(chainKey),
      newestRow(connection.get(), kNewestRow),
      oldestRow(connection.get(), kOldestRow),
      insertRow(connection.get(), kInsert),
      beginImmediate(connection.get(), "BEGIN IMMEDIATE"),
      commitStatement(connection.get(), "COMMIT"),
      rollbackStatement(connection.get(), "ROLLBACK") {}

ActivityStore::Database::Inserted ActivityStore::Database::insert(
    std::string_view json, double date, const std::optional<ChainEnd>& head, bool startMissing) {
  std::optional<ChainEnd> newest = readEnd(newestRow);
  ByteView prev = kGenesisPrev;
  if (head && (!newest || head->id >= newest->id))
    prev = head->hash;
  else if (newest)
    prev = newest->hash;

  ChainHash hash = hasher.hash(prev, json);
  {
    SQLiteStatement::Use use(insertRow);
    insertRow.bind(1, date);
    insertRow.bind(2, json);
    insertRow.bind(3, prev);
    insertRow.bind(4, ByteView(hash));
    insertRow.run();
  }
  Inserted inserted{{sqlite3_last_insert_rowid(connection.get()), Bytes(hash.begin(), hash.end())},
                    std::nullopt};
  if (startMissing) inserted.start = readEnd(oldestRow);
  return inserted;
}

// The date bound that deletes the rows dated before `cutoff` as far as they are a run from the
// oldest row: lowered to the earliest date among the rows that must stay, until the rows below the
// bound are exactly those before the first row that stays. Each round lowers the bound to the date
// of a row, so it ends; with dates in order it ends after one round.
double ActivityStore::Database::purgeBound(double cutoff) {
  SQLiteStatement firstKept(connection.get(), kFirstKeptID);
  SQLiteStatement earliestFrom(connection.get(), kEarliestDateFrom);
  double bound = cutoff;
  for (;;) {
    int64_t firstKeptID;
    {
      SQLiteStatement::Use use(firstKept);
      firstKept.bind(1, bound);
      if (!firstKept.step() || firstKept.isNull(0)) return bound;  // every row goes
      firstKeptID = firstKept.int64At(0);
    }
    SQLiteStatement::Use use(earliestFrom);
    earliestFrom.bind(1, firstKeptID);
    if (!earliestFrom.step() || earliestFrom.isNull(0)) return bound;
    double earliest = earliestFrom.doubleAt(0);
    if (earliest >= bound) return bound;
    bound = earliest;
  }
}

}  // namespace quorvane
