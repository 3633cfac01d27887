#include "RelayServer/SQLiteMailboxStore.h"

#include <sys/stat.h>

#include <algorithm>

#include "ActivityStore/ActivityStoreError.h"
#include "ActivityStore/SQLite.h"
#include "RelayServer/RelayCredentials.h"
#include "RelayServer/RelayServerError.h"

namespace quorvane::relay {
namespace {

// The schema. `last_seq` is kept in the mailbox row, so sequence numbers keep growing after the
// messages that carried them expired. `acked_seq` is the owner's acknowledged position and a
// message's `acked_at` the time it came at or below it. Credential columns hold SHA-256 hashes
// only.
constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL;\n"
    "PRAGMA synchronous=NORMAL;\n"
    "PRAGMA foreign_keys=ON;\n"
    "CREATE TABLE IF NOT EXISTS mailboxes (\n"
    "  id TEXT PRIMARY KEY,\n"
    "  secret_hash BLOB NOT NULL,\n"
    "  ephemeral INTEGER NOT NULL,\n"
    "  created_at REAL NOT NULL,\n"
    "  expires_at REAL,\n"
    "  last_seq INTEGER NOT NULL DEFAULT 0,\n"
    "  acked_seq INTEGER NOT NULL DEFAULT 0,\n"
    "  push_token TEXT, push_topic TEXT, push_production INTEGER\n"
    ");\n"
    "CREATE TABLE IF NOT EXISTS send_tokens (\n"
    "  mailbox_id TEXT NOT NULL REFERENCES mailboxes(id) ON DELETE CASCADE,\n"
    "  token_hash BLOB NOT NULL,\n"
    "  PRIMARY KEY (mailbox_id, token_hash)\n"
    ") WITHOUT ROWID;\n"
    "CREATE TABLE IF NOT EXISTS messages (\n"
    "  mailbox_id TEXT NOT NULL REFERENCES mailboxes(id) ON DELETE CASCADE,\n"
    "  seq INTEGER NOT NULL,\n"
    "  stored_at REAL NOT NULL,\n"
    "  push INTEGER NOT NULL,\n"
    "  data BLOB NOT NULL,\n"
    "  acked_at REAL,\n"
    "  PRIMARY KEY (mailbox_id, seq)\n"
    ") WITHOUT ROWID;\n"
    "CREATE INDEX IF NOT EXISTS messages_by_age ON messages (stored_at);\n"
    "CREATE INDEX IF NOT EXISTS mailboxes_by_end ON mailboxes (expires_at)\n"
    "  WHERE expires_at IS NOT NULL;\n";

// Files made before acknowledged positions existed lack their columns; the defaults (nothing
// acknowledged) are what those mailboxes had.
constexpr const char* kAcknowledgedSeqColumn =
    "ALTER TABLE mailboxes ADD COLUMN acked_seq INTEGER NOT NULL DEFAULT 0";
constexpr const char* kAcknowledgedAtColumn = "ALTER TABLE messages ADD COLUMN acked_at REAL";
constexpr const char* kAcknowledgedIndex =
    "CREATE INDEX IF NOT EXISTS messages_by_acknowledgement ON messages (acked_at)\n"
    "  WHERE acked_at IS NOT NULL";

bool hasColumn(sqlite3* connection, const char* table, std::string_view column) {
  SQLiteStatement columns(connection, "SELECT name FROM pragma_table_info(?1)");
  SQLiteStatement::Use use(columns);
  columns.bind(1, std::string_view(table));
  while (columns.step())
    if (columns.textAt(0) == column) return true;
  return false;
}

// Creates the tables, or brings an older file's up to date.
int prepareSchema(sqlite3* connection) {
  executeSQL(connection, kSchema);
  if (!hasColumn(connection, "mailboxes", "acked_seq"))
    executeSQL(connection, kAcknowledgedSeqColumn);
  if (!hasColumn(connection, "messages", "acked_at")) executeSQL(connection, kAcknowledgedAtColumn);
  executeSQL(connection, kAcknowledgedIndex);
  return 0;
}

SQLiteConnection openConnection(const std::filesystem::path& path) {
  std::error_code error;
  if (path.has_parent_path() && !std::filesystem::exists(path.parent_path())) {
    std::filesystem::create_directories(path.parent_path(), error);
    if (!error) ::chmod(path.parent_path().c_str(), 0700);
  }
  sqlite3* handle = nullptr;
  int code =
      sqlite3_open_v2(path.c_str(), &handle,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  SQLiteConnection connection(handle);
  if (code != SQLITE_OK)
    throw RelayServerError(RelayServerErrorKind::store,
                           "cannot open the relay database " + path.string() + ": " +
                               (handle ? sqlite3_errmsg(handle) : sqlite3_errstr(code)));
  sqlite3_busy_timeout(handle, 5000);
  ::chmod(path.c_str(), 0600);
  return connection;
}

// Runs `body`, turning SQLite failures into the relay's store error.
template <class Body>
auto translated(Body&& body) -> decltype(body()) {
  try {
    return body();
  } catch (const ActivityStoreError& error) {
    throw RelayServerError(RelayServerErrorKind::store,
                           std::string("relay database: ") + error.what());
  }
}

}  // namespace

struct SQLiteMailboxStore::Database {
  explicit Database(const std::filesystem::path& path)
      : connection(openConnection(path)),
        schema(prepareSchema(connection.get())),
        begin(connection.get(), "BEGIN IMMEDIATE"),
        commit(connection.get(), "COMMIT"),
        rollback(connection.get(), "ROLLBACK"),
        insertMailbox(connection.get(),
                      "INSERT INTO mailboxes (id, secret_hash, ephemeral, created_at, expires_at) "
                      "VALUES (?1, ?2, ?3, ?4, ?5)"),
        insertToken(connection.get(),
                    "INSERT OR IGNORE INTO send_tokens (mailbox_id, token_hash) "
                    "SELECT id, ?2 FROM mailboxes WHERE id = ?1"),
        deleteToken(connection.get(),
                    "DELETE FROM send_tokens WHERE mailbox_id = ?1 AND token_hash = ?2"),
        findMailbox(connection.get(),
                    "SELECT secret_hash, expires_at FROM mailboxes WHERE id = ?1"),
        findToken(connection.get(),
                  "SELECT 1 FROM send_tokens WHERE mailbox_id = ?1 AND token_hash = ?2"),
        setPush(connection.get(),
                "UPDATE mailboxes SET push_token = ?2, push_topic = ?3, push_production = ?4 "
                "WHERE id = ?1"),
        mailboxState(connection.get(),
                     "SELECT last_seq, (SELECT count(*) FROM messages "
                     "WHERE mailbox_id = ?1 AND seq > mailboxes.acked_seq) "
                     "FROM mailboxes WHERE id = ?1"),
        raiseSeq(connection.get(), "UPDATE mailboxes SET last_seq = ?2 WHERE id = ?1"),
        insertMessage(connection.get(),
                      "INSERT INTO messages (mailbox_id, seq, stored_at, push, data) "
                      "VALUES (?1, ?2, ?3, ?4, ?5)"),
        selectMessages(connection.get(),
                       "SELECT seq, data FROM messages WHERE mailbox_id = ?1 AND seq > ?2 "
                       "ORDER BY seq"),
        acknowledgeMessages(connection.get(),
                            "UPDATE messages SET acked_at = ?3 WHERE mailbox_id = ?1 AND seq <= ?2 "
                            "AND seq > (SELECT acked_seq FROM mailboxes WHERE id = ?1)"),
        raiseAcknowledged(connection.get(),
                          "UPDATE mailboxes SET acked_seq = min(?2, last_seq) "
                          "WHERE id = ?1 AND min(?2, last_seq) > acked_seq"),
        deleteMailbox(connection.get(), "DELETE FROM mailboxes WHERE id = ?1"),
        expireMailboxes(connection.get(),
                        "DELETE FROM mailboxes WHERE expires_at IS NOT NULL AND expires_at <= ?1"),
        expireMessages(connection.get(),
                       "DELETE FROM messages WHERE stored_at < ?1 OR acked_at <= ?2"),
        countMailboxes(connection.get(), "SELECT count(*) FROM mailboxes"),
        countMessages(connection.get(), "SELECT count(*) FROM messages") {}

  // Runs `body` inside one write transaction.
  template <class Body>
  auto transaction(Body&& body) -> decltype(body()) {
    run(begin);
    try {
      if constexpr (std::is_void_v<decltype(body())>) {
        body();
        run(commit);
      } else {
        auto result = body();
        run(commit);
        return result;
      }
    } catch (...) {
      try {
        run(rollback);
      } catch (const ActivityStoreError&) {
        // SQLite rolls back by itself when it cannot.
      }
      throw;
    }
  }

  static void run(SQLiteStatement& statement) {
    SQLiteStatement::Use use(statement);
    statement.run();
  }

  SQLiteConnection connection;
  int schema;
  SQLiteStatement begin, commit, rollback;
  SQLiteStatement insertMailbox, insertToken, deleteToken, findMailbox, findToken, setPush;
  SQLiteStatement mailboxState, raiseSeq, insertMessage, selectMessages;
  SQLiteStatement acknowledgeMessages, raiseAcknowledged, deleteMailbox;
  SQLiteStatement expireMailboxes, expireMessages, countMailboxes, countMessages;
};

SQLiteMailboxStore::SQLiteMailboxStore(const std::filesystem::path& path) {
  database_ = translated([&] { return std::make_unique<Database>(path); });
}

SQLiteMailboxStore::~SQLiteMailboxStore() = default;

void SQLiteMailboxStore::createMailbox(const MailboxRecord& mailbox) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  translated([&] {
    db.transaction([&] {
      {
        SQLiteStatement::Use use(db.insertMailbox);
        db.insertMailbox.bind(1, std::string_view(mailbox.id));
        db.insertMailbox.bind(2, ByteView(mailbox.secretHash));
        db.insertMailbox.bind(3, int64_t{mailbox.ephemeral});
        db.insertMailbox.bind(4, mailbox.createdAt.secondsSince1970);
        if (mailbox.expiresAt) db.insertMailbox.bind(5, mailbox.expiresAt->secondsSince1970);
        db.insertMailbox.run();
      }
      SQLiteStatement::Use use(db.insertToken);
      db.insertToken.bind(1, std::string_view(mailbox.id));
      db.insertToken.bind(2, ByteView(mailbox.sendTokenHash));
      db.insertToken.run();
    });
  });
}

MailboxAccess SQLiteMailboxStore::access(std::string_view id, ByteView credentialHash, Date now) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  return translated([&] {
    {
      SQLiteStatement::Use use(db.findMailbox);
      db.findMailbox.bind(1, id);
      if (!db.findMailbox.step()) return MailboxAccess::none;
      if (!db.findMailbox.isNull(1) && now.secondsSince1970 >= db.findMailbox.doubleAt(1))
        return MailboxAccess::none;
      if (sameCredentialHash(db.findMailbox.blobAt(0), credentialHash)) return MailboxAccess::owner;
    }
    // Looked up by the hash itself: the lookup's timing can only tell about hashes, which
    // reveal nothing of the tokens.
    SQLiteStatement::Use use(db.findToken);
    db.findToken.bind(1, id);
    db.findToken.bind(2, credentialHash);
    return db.findToken.step() ? MailboxAccess::sender : MailboxAccess::none;
  });
}

void SQLiteMailboxStore::addSendToken(std::string_view id, ByteView tokenHash) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  translated([&] {
    SQLiteStatement::Use use(db.insertToken);
    db.insertToken.bind(1, id);
    db.insertToken.bind(2, tokenHash);
    db.insertToken.run();
  });
}

bool SQLiteMailboxStore::removeSendToken(std::string_view id, ByteView tokenHash) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  return translated([&] {
    SQLiteStatement::Use use(db.deleteToken);
    db.deleteToken.bind(1, id);
    db.deleteToken.bind(2, tokenHash);
    db.deleteToken.run();
    return sqlite3_changes(db.connection.get()) > 0;
  });
}

void SQLiteMailboxStore::setPushRegistration(std::string_view id,
                                             const PushRegistration& registration) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  translated([&] {
    SQLiteStatement::Use use(db.setPush);
    db.setPush.bind(1, id);
    db.setPush.bind(2, std::string_view(registration.token));
    db.setPush.bind(3, std::string_view(registration.topic));
    db.setPush.bind(4, int64_t{registration.production});
    db.setPush.run();
  });
}

AppendOutcome SQLiteMailboxStore::appendMessage(std::string_view id, ByteView data, bool push,
                                                Date now, size_t maxMessages) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  return translated([&] {
    return db.transaction([&]() -> AppendOutcome {
      int64_t lastSeq = 0, count = 0;
      {
        SQLiteStatement::Use use(db.mailboxState);
        db.mailboxState.bind(1, id);
        if (!db.mailboxState.step()) return {AppendOutcome::Result::noMailbox, 0};
        lastSeq = db.mailboxState.int64At(0);
        count = db.mailboxState.int64At(1);
      }
      if (static_cast<uint64_t>(count) >= maxMessages)
        return {AppendOutcome::Result::mailboxFull, 0};
      const int64_t seq = lastSeq + 1;
      {
        SQLiteStatement::Use use(db.raiseSeq);
        db.raiseSeq.bind(1, id);
        db.raiseSeq.bind(2, seq);
        db.raiseSeq.run();
      }
      SQLiteStatement::Use use(db.insertMessage);
      db.insertMessage.bind(1, id);
      db.insertMessage.bind(2, seq);
      db.insertMessage.bind(3, now.secondsSince1970);
      db.insertMessage.bind(4, int64_t{push});
      db.insertMessage.bind(5, data);
      db.insertMessage.run();
      return {AppendOutcome::Result::stored, static_cast<uint64_t>(seq)};
    });
  });
}

std::vector<StoredMessage> SQLiteMailboxStore::messagesAfter(std::string_view id, uint64_t after,
                                                             size_t maxBytes) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  return translated([&] {
    std::vector<StoredMessage> result;
    SQLiteStatement::Use use(db.selectMessages);
    db.selectMessages.bind(1, id);
    // Cursors beyond what SQLite's integers hold ask for nothing that can exist.
    if (after > static_cast<uint64_t>(INT64_MAX)) return result;
    db.selectMessages.bind(2, static_cast<int64_t>(after));
    size_t bytes = 0;
    while (db.selectMessages.step()) {
      ByteView data = db.selectMessages.blobAt(1);
      if (!result.empty() && bytes + data.size() > maxBytes) break;
      bytes += data.size();
      result.push_back(
          {static_cast<uint64_t>(db.selectMessages.int64At(0)), Bytes(data.begin(), data.end())});
    }
    return result;
  });
}

void SQLiteMailboxStore::acknowledge(std::string_view id, uint64_t upTo, Date now) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  // Positions beyond what SQLite's integers hold are beyond every seq given out.
  const auto position = static_cast<int64_t>(std::min<uint64_t>(upTo, INT64_MAX));
  translated([&] {
    db.transaction([&] {
      {
        SQLiteStatement::Use use(db.acknowledgeMessages);
        db.acknowledgeMessages.bind(1, id);
        db.acknowledgeMessages.bind(2, position);
        db.acknowledgeMessages.bind(3, now.secondsSince1970);
        db.acknowledgeMessages.run();
      }
      SQLiteStatement::Use use(db.raiseAcknowledged);
      db.raiseAcknowledged.bind(1, id);
      db.raiseAcknowledged.bind(2, position);
      db.raiseAcknowledged.run();
    });
  });
}

bool SQLiteMailboxStore::deleteMailbox(std::string_view id) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  return translated([&] {
    SQLiteStatement::Use use(db.deleteMailbox);
    db.deleteMailbox.bind(1, id);
    db.deleteMailbox.run();
    return sqlite3_changes(db.connection.get()) > 0;
  });
}

void SQLiteMailboxStore::expire(Date now, Date storedBefore, Date acknowledgedUntil) {
  MutexLock lock(mutex_);
  Database& db = *database_;
  translated([&] {
    db.transaction([&] {
      {
        SQLiteStatement::Use use(db.expireMailboxes);
        db.expireMailboxes.bind(1, now.secondsSince1970);
        db.expireMailboxes.run();
      }
      SQLiteStatement::Use use(db.expireMessages);
      db.expireMessages.bind(1, storedBefore.secondsSince1970);
      db.expireMessages.bind(2, acknowledgedUntil.secondsSince1970);
      db.expireMessages.run();
    });
  });
}

StoreCounts SQLiteMailboxStore::counts() {
  MutexLock lock(mutex_);
  Database& db = *database_;
  return translated([&] {
    StoreCounts counts;
    {
      SQLiteStatement::Use use(db.countMailboxes);
      if (db.countMailboxes.step()) counts.mailboxes = db.countMailboxes.int64At(0);
    }
    SQLiteStatement::Use use(db.countMessages);
    if (db.countMessages.step()) counts.messages = db.countMessages.int64At(0);
    return counts;
  });
}

}  // namespace quorvane::relay
