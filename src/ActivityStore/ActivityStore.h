#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <stop_token>
#include <string_view>
#include <thread>
#include <vector>

#include "ActivityModel/ActivityExport.h"
#include "ActivityModel/ActivityLog.h"
#include "ActivityStore/ChainAnchor.h"
#include "ActivityStore/ChainProblem.h"
#include "ActivityStore/SerialQueue.h"
#include "Base/Mutex.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// The activity log on disk: a SQLite database whose rows form a hash chain, so that an entry
// edited outside the program, or rows removed from either end, are noticed by `verify`.
//
// Table `activity`: id (AUTOINCREMENT, never reused), date (the entry's date in whole seconds
// since 1970), json (the entry's JSON text), prev (the previous row's hash), hash. A row's hash is
// HMAC-SHA-256 under the chain key, or SHA-256 without one, of prev followed by json. The first
// row of a new log has 32 zero bytes as prev. The date column is not covered; the date inside the
// JSON is.
//
// Several processes may write one log (the agent and the application): each append takes the
// write lock first (BEGIN IMMEDIATE) and links to the newest row it finds inside that transaction.
// The anchor keeps the ends of the chain outside the database; the head is recorded after a commit
// has reached the disk and only ever moves forward, so after a crash or a power loss it never names
// a row that is not there. By default every commit is synced before `append` returns (WAL with
// synchronous=FULL). With the anchor recorded in the background, commits are not synced one by
// one: the recorder syncs the log's files before it records a head, so an entry is durable within
// about kAnchorCoalescing of its append, and a power loss can take only entries the anchor never
// named.
//
// All database work runs on one private serial queue; every method may be called from any thread
// and waits for its turn. Failures are thrown as ActivityStoreError.
class ActivityStore final : public ActivityLog {
 public:
  static constexpr std::string_view kQueueLabel = "com.tallowmere.quorvane.activity";
  // The prev of the very first row of a new log.
  static constexpr std::array<uint8_t, 32> kGenesisPrev{};
  // How long a write waits for another process's write to finish before failing with
  // SQLITE_BUSY.
  static constexpr int kBusyTimeoutMilliseconds = 5000;
  // How many rows forEachEntry fetches at a time.
  static constexpr int kPageSize = 1000;
  // With the anchor recorded in the background, how long the recorder lets appends gather
  // before one write records them all; the anchor's head lags the log by about this much.
  static constexpr std::chrono::milliseconds kAnchorCoalescing{200};

  // Opens or creates the log at `path` (a new file is made readable by its owner only). The chain
  // key, when given, keys the hashes of new rows and of verification; usually it is the anchor's.
  // Throws ActivityStoreError::sqlite when the file cannot be opened or is not a log.
  //
  // With `anchorInBackground`, `append` returns once its row is committed (not yet synced) and a
  // background thread syncs the log and records the new head in the anchor, so that neither the
  // disk nor a slow keychain write is on the caller's path; anchor failures are then printed to
  // standard error instead of thrown. The destructor waits for the last record.
  static std::unique_ptr<ActivityStore> open(const std::filesystem::path& path,
                                             std::shared_ptr<ChainAnchor> anchor = nullptr,
                                             std::optional<SecureBytes> chainKey = std::nullopt,
                                             bool anchorInBackground = false);
  ~ActivityStore() override;
  ActivityStore(const ActivityStore&) = delete;
  ActivityStore& operator=(const ActivityStore&) = delete;

  // Adds an entry at the end of the chain and returns once it is committed; then records the new
  // head (and the start of a log that had none) in the anchor. Appends that arrive while another
  // commits are committed together in the next transaction (one sync for all of them).
  void append(const ActivityEntry& entry) override;

  // Entries matching the query, newest first. The text is looked for in the stored JSON text
  // (with LIKE, so ASCII letters match either case; "%", "_" and "\" match only themselves).
  // Rows whose JSON is not an entry are left out.
  std::vector<ActivityEntry> entries(const ActivityQuery& query) override;

  // Checks every row's link and hash in id order, then the ends against the anchor. Returns the
  // first problem found, or nothing for an intact log.
  std::optional<ChainProblem> verify();

  // Deletes the entries dated before `before`, but only as a run from the oldest row on: the
  // oldest row dated `before` or later, and every row after it, stay, so the chain never gets a
  // hole. Then records the new start in the anchor and logs the purge as an entry dated `now` with
  // outcome "purged" and the note "<count> entries before <ISO 8601 date> deleted". Returns the
  // number of entries deleted; a purge that deletes nothing changes and logs nothing.
  int64_t purge(Date before, Date now);

  // What a scan saw: entries passed on, and rows skipped because their JSON is not an entry.
  struct ScanCount {
    int64_t entries = 0;
    int64_t skipped = 0;
  };

  // Passes every entry dated within [from, to] (either end open when absent) to `visit`, oldest
  // first, on the calling thread. Rows are fetched kPageSize at a time, so memory does not grow
  // with the log; `visit` may call the store.
  ScanCount forEachEntry(std::optional<Date> from, std::optional<Date> to,
                         const std::function<void(const ActivityEntry&)>& visit);

  // Writes the entries within [from, to], oldest first, as ActivityExportWriter does. The caller
  // checks the stream afterwards.
  ScanCount exportEntries(std::ostream& out, ActivityExportFormat format,
                          std::optional<Date> from = std::nullopt,
                          std::optional<Date> to = std::nullopt);

  // The entry that a purge logs about itself.
  static ActivityEntry purgeEntry(int64_t count, Date before, Date now);

 private:
  struct Database;

  // One entry waiting to be committed by whichever append leads the next transaction.
  struct PendingAppend {
    std::string json;
    double date = 0;
    bool done = false;
    std::exception_ptr error;
  };
  // What the background recorder has still to write to the anchor.
  struct AnchorWork {
    std::optional<ChainEnd> head;
    std::optional<ChainEnd> start;
  };

  explicit ActivityStore(std::shared_ptr<ChainAnchor> anchor);
  // On the queue, after a commit.
  void recordInAnchor(const ChainEnd& head, const std::optional<ChainEnd>& start);
  // Commits `batch` in one transaction (on the queue) and records the anchor.
  void commitBatch(const std::vector<PendingAppend*>& batch);
  void recordInBackground(std::stop_token stop) EXCLUDES(batchMutex_);
  // On the queue: syncs the database and its WAL when commits are not synced one by one.
  void makeCommitsDurable();

  std::shared_ptr<ChainAnchor> anchor_;
  Mutex batchMutex_;
  std::condition_variable_any batchChanged_;
  std::vector<PendingAppend*> batch_ GUARDED_BY(batchMutex_);
  bool batchLeader_ GUARDED_BY(batchMutex_) = false;  // a transaction is being committed
  AnchorWork anchorWork_ GUARDED_BY(batchMutex_);
  std::condition_variable_any anchorWorkArrived_;
  bool syncBeforeAnchor_ = false;       // commits are not synced one by one
  std::jthread anchorRecorder_;         // runs only with anchorInBackground
  std::unique_ptr<Database> database_;  // touched only on queue_
  SerialQueue queue_;
};

}  // namespace quorvane
