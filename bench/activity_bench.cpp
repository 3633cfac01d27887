// The activity log's costs:
// - appending one entry per transaction, as the agent does, with commits durable on disk
//   (synchronous=FULL), alternating with a plain SQLite insert of the same rows with the same
//   settings but without JSON encoding, hashing, linking or the anchor;
// - the JSON and hash work alone;
// - verifying and exporting logs of 100,000 and 1,000,000 entries, with the resident memory before
//   and the peak during the run (the peak is reset first), which must not grow with the log.
// Logs live in a temporary directory on the same disk as /tmp and are removed at exit.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "ActivityStore/ActivityStore.h"
#include "ActivityStore/ChainHasher.h"
#include "ActivityStore/MemoryChainAnchor.h"

namespace quorvane {
namespace {

constexpr double kBase = 1795251900;  // 2026-11-21T09:05:00Z

ActivityEntry entry(int64_t i) {
  ActivityEntry entry;
  entry.date = Date{kBase + static_cast<double>(i)};
  entry.keyFingerprint = "SHA256:Zq2f8u0nB2d1k7wqL6mX3yQ1s9rT4vE5hJ0pA8cN2xY";
  entry.keyName = "Work key";
  entry.purpose = i % 4 == 0 ? "sign:git" : "login";
  entry.host = "host-" + std::to_string(i % 97) + ".example.com";
  entry.hostVerified = true;
  entry.app = "Code";
  entry.chain = {"/usr/bin/ssh", "/usr/bin/git", "/usr/share/code/code"};
  entry.workingDirectory = "/home/me/src/project-" + std::to_string(i % 13);
  entry.decision = "askLocal";
  entry.decidedBy = "user on this computer";
  entry.outcome = ActivityEntry::Outcome::signed_;
  entry.hostKeyFingerprint = "SHA256:hK4d9s2mQ7tV1xP8wE3nB6yR0cZ5aL2jF9gU4iO1kT";
  entry.appIdentifier = "/usr/share/code/code";
  return entry;
}

SecureBytes benchKey() { return SecureBytes(Bytes(32, 0x42)); }

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quorvane-bench-XXXXXX");
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

TemporaryFolder& folder() {
  static TemporaryFolder instance;
  return instance;
}

void check(int code, sqlite3* db) {
  if (code != SQLITE_OK && code != SQLITE_DONE && code != SQLITE_ROW)
    throw std::runtime_error(sqlite3_errmsg(db));
}

// Memory of this process from /proc/self/status, in KiB.
int64_t statusKiB(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind(field, 0) == 0) return std::stoll(line.substr(std::string(field).size()));
  return -1;
}

// CPU time of the whole process (every thread), in seconds.
double processCPUSeconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Makes the peak resident size (VmHWM) start again from the current size.
void resetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

// A plain connection to a log file that inserts already encoded rows, one autocommit INSERT
// each, with the same journal and durability settings as the store.
class PlainInserter {
 public:
  explicit PlainInserter(const std::filesystem::path& path) {
    { ActivityStore::open(path); }  // the same schema
    check(
        sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr),
        db_);
    check(sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", nullptr, nullptr,
                       nullptr),
          db_);
    check(sqlite3_prepare_v2(db_, "INSERT INTO activity(date, json, prev, hash) VALUES (?,?,?,?)",
                             -1, &insert_, nullptr),
          db_);
  }
  ~PlainInserter() {
    sqlite3_finalize(insert_);
    sqlite3_close_v2(db_);
  }

  void insert(double date, const std::string& text) {
    static const Bytes kBlob(32, 0x5a);
    sqlite3_bind_double(insert_, 1, date);
    sqlite3_bind_text(insert_, 2, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    sqlite3_bind_blob(insert_, 3, kBlob.data(), 32, SQLITE_STATIC);
    sqlite3_bind_blob(insert_, 4, kBlob.data(), 32, SQLITE_STATIC);
    check(sqlite3_step(insert_), db_);
    sqlite3_reset(insert_);
  }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

// Each iteration appends one entry through the store and inserts the same row, already encoded,
// through a plain connection to a second file on the same disk, timing each; alternating them
// puts both under the same disk and machine load. The iteration time is the append's; the
// counters give both means and the append's extra cost in percent.
void BM_AppendVersusPlainInsert(benchmark::State& state) {
  std::filesystem::path chainedPath = folder().path() / "append-chained.sqlite";
  std::filesystem::path plainPath = folder().path() / "insert-plain.sqlite";
  std::filesystem::remove(chainedPath);
  std::filesystem::remove(plainPath);
  auto anchor = std::make_shared<MemoryChainAnchor>(benchKey());
  auto store = ActivityStore::open(chainedPath, anchor, anchor->chainKey());
  PlainInserter plain(plainPath);
  double appendSeconds = 0, insertSeconds = 0;
  int64_t i = 0;
  for (auto _ : state) {
    ActivityEntry row = entry(i++);
    std::string text = encodeActivityEntryText(row);  // the plain insert's input, not timed
    auto start = std::chrono::steady_clock::now();
    store->append(row);
    auto appended = std::chrono::steady_clock::now();
    plain.insert(row.date.secondsSince1970, text);
    auto inserted = std::chrono::steady_clock::now();
    double appendTime = std::chrono::duration<double>(appended - start).count();
    appendSeconds += appendTime;
    insertSeconds += std::chrono::duration<double>(inserted - appended).count();
    state.SetIterationTime(appendTime);
  }
  double n = static_cast<double>(state.iterations());
  state.counters["append_us"] = appendSeconds / n * 1e6;
  state.counters["plain_insert_us"] = insertSeconds / n * 1e6;
  state.counters["extra_pct"] = (appendSeconds / insertSeconds - 1) * 100;
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AppendVersusPlainInsert)->UseManualTime()->MinTime(5);

// What an append adds in CPU: encoding the entry and hashing it.
void BM_EncodeAndHashEntry(benchmark::State& state) {
  ChainHasher hasher(benchKey());
  ChainHash prev{};
  int64_t i = 0;
  for (auto _ : state) {
    std::string text = encodeActivityEntryText(entry(i++));
    prev = hasher.hash(prev, text);
  }
  benchmark::DoNotOptimize(prev);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EncodeAndHashEntry);

// A keyed log of `count` entries with its anchor, filled in one transaction with the chain
// computed here (a setup shortcut; the store itself appends one entry per transaction).
struct LargeLog {
  std::filesystem::path path;
  std::shared_ptr<MemoryChainAnchor> anchor = std::make_shared<MemoryChainAnchor>(benchKey());

  explicit LargeLog(int64_t count)
      : path(folder().path() / ("large-" + std::to_string(count) + ".sqlite")) {
    { ActivityStore::open(path); }
    sqlite3* db = nullptr;
    check(sqlite3_open(path.c_str(), &db), db);
    check(sqlite3_exec(db, "PRAGMA synchronous=OFF; BEGIN", nullptr, nullptr, nullptr), db);
    sqlite3_stmt* insert = nullptr;
    check(sqlite3_prepare_v2(db, "INSERT INTO activity(date, json, prev, hash) VALUES (?,?,?,?)",
                             -1, &insert, nullptr),
          db);
    ChainHasher hasher(benchKey());
    ChainHash prev{};
    for (int64_t i = 1; i <= count; ++i) {
      ActivityEntry row = entry(i);
      std::string text = encodeActivityEntryText(row);
      ChainHash hash = hasher.hash(prev, text);
      sqlite3_bind_double(insert, 1, row.date.secondsSince1970);
      sqlite3_bind_text(insert, 2, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
      sqlite3_bind_blob(insert, 3, prev.data(), 32, SQLITE_STATIC);
      sqlite3_bind_blob(insert, 4, hash.data(), 32, SQLITE_STATIC);
      check(sqlite3_step(insert), db);
      sqlite3_reset(insert);
      if (i == 1) anchor->setStart(ChainEnd{1, Bytes(prev.begin(), prev.end())});
      if (i == count) anchor->setHead(ChainEnd{count, Bytes(hash.begin(), hash.end())});
      prev = hash;
    }
    sqlite3_finalize(insert);
    check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db);
    sqlite3_close_v2(db);
  }
};

LargeLog& largeLog(int64_t count) {
  static std::map<int64_t, std::unique_ptr<LargeLog>> logs;
  auto& log = logs[count];
  if (!log) log = std::make_unique<LargeLog>(count);
  return *log;
}

// The resident memory before the run and its peak during it, and the entries handled per second
// of CPU time of the whole process (the store works on its own thread): on a machine shared with
// other work, wall-clock rates depend on the load, this one much less.
void report(benchmark::State& state, int64_t residentBefore, double cpuSeconds) {
  state.counters["rss_before_MiB"] = static_cast<double>(residentBefore) / 1024;
  state.counters["peak_MiB"] = static_cast<double>(statusKiB("VmHWM:")) / 1024;
  state.counters["per_cpu_second"] =
      static_cast<double>(state.iterations() * state.range(0)) / cpuSeconds;
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Verify(benchmark::State& state) {
  LargeLog& log = largeLog(state.range(0));
  auto store = ActivityStore::open(log.path, log.anchor, log.anchor->chainKey());
  int64_t residentBefore = statusKiB("VmRSS:");
  resetPeakMemory();
  double cpuBefore = processCPUSeconds();
  for (auto _ : state) {
    if (store->verify()) state.SkipWithError("the log does not verify");
  }
  report(state, residentBefore, processCPUSeconds() - cpuBefore);
}
BENCHMARK(BM_Verify)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ExportCSV(benchmark::State& state) {
  LargeLog& log = largeLog(state.range(0));
  auto store = ActivityStore::open(log.path, log.anchor, log.anchor->chainKey());
  int64_t residentBefore = statusKiB("VmRSS:");
  resetPeakMemory();
  double cpuBefore = processCPUSeconds();
  for (auto _ : state) {
    std::ofstream out("/dev/null");
    if (store->exportEntries(out, ActivityExportFormat::csv).entries != state.range(0))
      state.SkipWithError("entries missing from the export");
  }
  report(state, residentBefore, processCPUSeconds() - cpuBefore);
}
BENCHMARK(BM_ExportCSV)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

}  // namespace
}  // namespace quorvane
