#include "ActivityStore/ActivityStore.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <limits>

#include "ActivityStore/ActivityDatabase.h"
#include "ActivityStore/ActivityStoreError.h"

namespace quorvane {

namespace {

// Syncs one of the connection's files (the database, or its WAL when open) through SQLite's own
// file object: a descriptor opened and closed here would drop the connection's POSIX locks.
void syncFile(sqlite3* db, int opcode) {
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(db, "main", opcode, &file) != SQLITE_OK || file == nullptr ||
      file->pMethods == nullptr)
    return;
  int code = file->pMethods->xSync(file, SQLITE_SYNC_NORMAL);
  if (code != SQLITE_OK) throw ActivityStoreError::sqlite(code, "the log could not be synced");
}

constexpr std::string_view kScan = "SELECT id, json, prev, hash FROM activity ORDER BY id";
constexpr std::string_view kPurge = "DELETE FROM activity WHERE date < ?";

bool sameBytes(ByteView a, ByteView b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

// The date column's value: the entry's date as its JSON text gives it, in whole seconds.
double storedSeconds(Date date) {
  return Date::parseISO8601(date.iso8601()).value_or(Date{}).secondsSince1970;
}

// The LIKE pattern that finds `text` inside entry JSON: the text as it appears inside a JSON
// string (so quotes and backslashes match their escaped form), with the LIKE wildcards and the
// escape character escaped, between two "%".
std::string likePattern(std::string_view text) {
  std::string asJSON = dumpLogJSON(JSON(std::string(text)));
  std::string pattern = "%";
  for (char c : std::string_view(asJSON).substr(1, asJSON.size() - 2)) {
    if (c == '%' || c == '_' || c == '\\') pattern += '\\';
    pattern += c;
  }
  pattern += '%';
  return pattern;
}

}  // namespace

// After the commit, so that the anchor never names a row that might not be there; a head already
// further on (another process's) stays.
void ActivityStore::recordInAnchor(const ChainEnd& head, const std::optional<ChainEnd>& start) {
  if (!anchor_) return;
  std::optional<ChainEnd> current = anchor_->head();
  if (!current || current->id < head.id) anchor_->setHead(head);
  if (start) anchor_->setStart(start);
}

void ActivityStore::makeCommitsDurable() {
  if (!syncBeforeAnchor_) return;  // every commit was synced already
  syncFile(database_->connection.get(), SQLITE_FCNTL_JOURNAL_POINTER);
  syncFile(database_->connection.get(), SQLITE_FCNTL_FILE_POINTER);
}

ActivityStore::ActivityStore(std::shared_ptr<ChainAnchor> anchor)
    : anchor_(std::move(anchor)), queue_(std::string(kQueueLabel)) {}

ActivityStore::~ActivityStore() {
  if (anchorRecorder_.joinable()) {
    anchorRecorder_.request_stop();
    anchorRecorder_.join();
  }
  queue_.sync([this] { database_.reset(); });
}

std::unique_ptr<ActivityStore> ActivityStore::open(const std::filesystem::path& path,
                                                   std::shared_ptr<ChainAnchor> anchor,
                                                   std::optional<SecureBytes> chainKey,
                                                   bool anchorInBackground) {
  std::unique_ptr<ActivityStore> store(new ActivityStore(std::move(anchor)));
  const bool background = anchorInBackground && store->anchor_;
  store->queue_.sync(
      [&] { store->database_ = std::make_unique<Database>(path, chainKey, background); });
  if (background) {
    store->syncBeforeAnchor_ = true;
    store->anchorRecorder_ =
        std::jthread([raw = store.get()](std::stop_token stop) { raw->recordInBackground(stop); });
  }
  return store;
}

void ActivityStore::recordInBackground(std::stop_token stop) {
  MutexLock lock(batchMutex_);
  for (;;) {
    anchorWorkArrived_.wait(batchMutex_, stop,
                            [&]() REQUIRES(batchMutex_) { return anchorWork_.head.has_value(); });
    if (!anchorWork_.head) return;  // stopped with nothing left to record
    // Let a burst of appends settle, so that one keychain write records them all.
    anchorWorkArrived_.wait_for(batchMutex_, stop, kAnchorCoalescing, [] { return false; });
    AnchorWork work = std::exchange(anchorWork_, {});
    lock.unlock();
    try {
      queue_.sync([&] {
        makeCommitsDurable();
        recordInAnchor(*work.head, work.start);
      });
    } catch (const std::exception& error) {
      std::fprintf(stderr, "activity log: the chain anchor was not updated: %s\n", error.what());
    }
    lock.lock();
  }
}

void ActivityStore::commitBatch(const std::vector<PendingAppend*>& batch) {
  queue_.sync([&] {
    Database& db = *database_;
    db.begin();
    Database::Inserted inserted;
    std::optional<ChainEnd> start;
    // An anchor that cannot be read does not cost the entries: the rows link to the newest row,
    // are committed, and then the anchor's failure is reported.
    std::exception_ptr anchorFailure;
    try {
      std::optional<ChainEnd> head;
      bool startMissing = false;
      if (anchor_) {
        try {
          head = anchor_->head();
          startMissing = !anchor_->start();
        } catch (const ActivityStoreError&) {
          anchorFailure = std::current_exception();
        }
      }
      for (PendingAppend* pending : batch) {
        inserted = db.insert(pending->json, pending->date, head, startMissing);
        if (inserted.start) start = inserted.start;
        startMissing = false;
      }
      db.commit();
    } catch (...) {
      db.rollbackQuietly();
      throw;
    }
    if (anchorRecorder_.joinable()) {
      MutexLock lock(batchMutex_);
      // With work already waiting, the recorder is gathering or recording and needs no wake-up.
      bool recorderIdle = !anchorWork_.head;
      anchorWork_.head = inserted.head;
      if (start) anchorWork_.start = start;
      if (recorderIdle) anchorWorkArrived_.notify_all();
      return;
    }
    if (anchorFailure) std::rethrow_exception(anchorFailure);
    recordInAnchor(inserted.head, start);
  });
}

void ActivityStore::append(const ActivityEntry& entry) {
  PendingAppend mine;
  mine.json = encodeActivityEntryText(entry);
  mine.date = storedSeconds(entry.date);
  MutexLock lock(batchMutex_);
  batch_.push_back(&mine);
  batchChanged_.wait(batchMutex_,
                     [&]() REQUIRES(batchMutex_) { return mine.done || !batchLeader_; });
  if (!mine.done) {
    // Lead the next transaction: take every entry waiting now, this one included.
    batchLeader_ = true;
    std::vector<PendingAppend*> batch = std::exchange(batch_, {});
    lock.unlock();
    std::exception_ptr error;
    try {
      commitBatch(batch);
    } catch (...) {
      error = std::current_exception();
    }
    lock.lock();
    for (PendingAppend* pending : batch) {
      pending->done = true;
      pending->error = error;
    }
    batchLeader_ = false;
    batchChanged_.notify_all();
  }
  if (mine.error) std::rethrow_exception(mine.error);
}

std::vector<ActivityEntry> ActivityStore::entries(const ActivityQuery& query) {
  std::string sql = "SELECT json FROM activity WHERE 1=1";
  if (query.from) sql += " AND date >= ?";
  if (query.to) sql += " AND date <= ?";
  if (!query.text.empty()) sql += " AND json LIKE ? ESCAPE '\\'";
  sql += " ORDER BY id DESC LIMIT ?";
  std::string pattern = query.text.empty() ? "" : likePattern(query.text);
  int64_t limit = static_cast<int64_t>(
      std::min<size_t>(query.limit, static_cast<size_t>(std::numeric_limits<int64_t>::max())));

  return queue_.sync([&] {
    SQLiteStatement search(database_->connection.get(), sql);
    int index = 1;
    if (query.from) search.bind(index++, query.from->secondsSince1970);
    if (query.to) search.bind(index++, query.to->secondsSince1970);
    if (!query.text.empty()) search.bind(index++, std::string_view(pattern));
    search.bind(index, limit);
    std::vector<ActivityEntry> found;
    while (search.step()) {
      try {
        found.push_back(decodeActivityEntryText(search.textAt(0)));
      } catch (const DecodingError&) {
        // A row that is not an entry is verify's business; the list shows the rest.
      }
    }
    return found;
  });
}

std::optional<ChainProblem> ActivityStore::verify() {
  return queue_.sync([&]() -> std::optional<ChainProblem> {
    Database& db = *database_;
    {
      SQLiteStatement scan(db.connection.get(), kScan);
      ChainHash expected{};
      bool first = true;
      while (scan.step()) {
        int64_t id = scan.int64At(0);
        ByteView prev = scan.blobAt(2);
        // The first row's own prev starts the chain, so a purged log verifies.
        if (!first && !sameBytes(prev, expected)) return ChainProblem::modified(id);
        expected = db.hasher.hash(prev, scan.textAt(1));
        if (!sameBytes(scan.blobAt(3), expected)) return ChainProblem::modified(id);
        first = false;
      }
    }
    if (!anchor_) return std::nullopt;

    // The order of these reads keeps another process's writes meanwhile from looking like a
    // removal: the head is recorded after a commit and rows only get newer, so the head is read
    // before the newest row; a purge records the start before its commit, so the oldest row is
    // read before the start.
    std::optional<ChainEnd> oldest = readEnd(db.oldestRow);
    std::optional<ChainEnd> start = anchor_->start();
    std::optional<ChainEnd> head = anchor_->head();
    std::optional<ChainEnd> newest = readEnd(db.newestRow);
    if (head) {
      if (!newest || newest->id < head->id) return ChainProblem::truncated(head->id);
      if (newest->id == head->id && !sameBytes(newest->hash, head->hash))
        return ChainProblem::modified(head->id);
    }
    // A start further on than the oldest row is a purge whose commit did not happen: more rows,
    // not fewer.
    if (start && (!oldest || oldest->id > start->id ||
                  (oldest->id == start->id && !sameBytes(oldest->hash, start->hash))))
      return ChainProblem::truncatedStart(start->id);
    return std::nullopt;
  });
}

ActivityEntry ActivityStore::purgeEntry(int64_t count, Date before, Date now) {
  ActivityEntry entry;
  entry.date = now;
  entry.purpose = "purge";
  entry.app = "Quorvane";
  entry.decision = "purge";
  entry.decidedBy = "retention";
  entry.outcome = ActivityEntry::Outcome::purged;
  entry.note = std::to_string(count) + " entries before " + before.iso8601() + " deleted";
  return entry;
}

int64_t ActivityStore::purge(Date before, Date now) {
  struct Result {
    int64_t count = 0;
    std::optional<Database::Inserted> inserted;
  };
  Result result = queue_.sync([&] {
    Database& db = *database_;
    Result done;
    db.begin();
    std::optional<std::optional<ChainEnd>> previousStart;
    try {
      {
        SQLiteStatement deletion(db.connection.get(), kPurge);
        deletion.bind(1, db.purgeBound(before.secondsSince1970));
        deletion.run();
      }
      done.count = sqlite3_changes64(db.connection.get());
      if (done.count == 0) {
        db.rollbackQuietly();
        return done;
      }
      if (anchor_) {
        // Recorded before the commit: should the commit not happen, a start further on than the
        // oldest row is not mistaken for a removal.
        previousStart = anchor_->start();
        anchor_->setStart(readEnd(db.oldestRow));
      }
      std::string json = encodeActivityEntryText(purgeEntry(done.count, before, now));
      std::optional<ChainEnd> head = anchor_ ? anchor_->head() : std::nullopt;
      done.inserted = db.insert(json, storedSeconds(now), head, anchor_ && !anchor_->start());
      db.commit();
    } catch (...) {
      db.rollbackQuietly();
      if (previousStart) {
        try {
          anchor_->setStart(*previousStart);
        } catch (const ActivityStoreError&) {
          // The start stays further on, which verify accepts.
        }
      }
      throw;
    }
    makeCommitsDurable();
    recordInAnchor(done.inserted->head, done.inserted->start);
    return done;
  });
  return result.count;
}

ActivityStore::ScanCount ActivityStore::forEachEntry(
    std::optional<Date> from, std::optional<Date> to,
    const std::function<void(const ActivityEntry&)>& visit) {
  std::string sql = "SELECT id, json FROM activity WHERE id > ?";
  if (from) sql += " AND date >= ?";
  if (to) sql += " AND date <= ?";
  sql += " ORDER BY id LIMIT ?";

  ScanCount count;
  int64_t after = std::numeric_limits<int64_t>::min();
  std::vector<std::string> page;
  for (;;) {
    page.clear();
    queue_.sync([&] {
      SQLiteStatement select(database_->connection.get(), sql);
      int index = 1;
      select.bind(index++, after);
      if (from) select.bind(index++, from->secondsSince1970);
      if (to) select.bind(index++, to->secondsSince1970);
      select.bind(index, int64_t{kPageSize});
      while (select.step()) {
        after = select.int64At(0);
        page.emplace_back(select.textAt(1));
      }
    });
    if (page.empty()) return count;
    for (const std::string& json : page) {
      std::optional<ActivityEntry> entry;
      try {
        entry = decodeActivityEntryText(json);
      } catch (const DecodingError&) {
        ++count.skipped;
        continue;
      }
      visit(*entry);
      ++count.entries;
    }
  }
}

ActivityStore::ScanCount ActivityStore::exportEntries(std::ostream& out,
                                                      ActivityExportFormat format,
                                                      std::optional<Date> from,
                                                      std::optional<Date> to) {
  ActivityExportWriter writer(out, format);
  ScanCount count =
      forEachEntry(from, to, [&](const ActivityEntry& entry) { writer.write(entry); });
  writer.finish();
  return count;
}

}  // namespace quorvane
