#include <sqlite3.h>
#include <sys/stat.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ActivityStore/ActivityStoreError.h"
#include "ActivityStore/KeychainChainAnchor.h"
#include "ActivityStoreTestSupport.h"
#include "Platform/FileKeychain.h"
#include "Platform/InMemoryKeychain.h"

namespace quorvane {
namespace {

using activitytest::loginEntry;

using ActivityStoreTest = activitytest::StoreTest;

TEST_F(ActivityStoreTest, AppendsEntriesThatReadBackAndRecordsTheEnds) {
  auto store = openStore();
  ActivityEntry first = loginEntry(1);
  first.date = first.date + 0.75;  // kept in whole seconds, as the JSON says
  store->append(first);
  store->append(loginEntry(2));
  first.date = loginEntry(1).date;
  EXPECT_EQ(store->entries({}), (std::vector{loginEntry(2), first}));
  EXPECT_EQ(shellQuery("SELECT id, date FROM activity"),
            "1|" + std::to_string(static_cast<int64_t>(activitytest::kBase + 60)) + ".0\n2|" +
                std::to_string(static_cast<int64_t>(activitytest::kBase + 120)) + ".0\n");
  EXPECT_EQ(anchor_->head()->id, 2);
  EXPECT_EQ(anchor_->start()->id, 1);
  EXPECT_EQ(anchor_->start()->hash, Bytes(32, 0));
  EXPECT_EQ(shellQuery("PRAGMA journal_mode"), "wal\n");
  struct stat info;
  ASSERT_EQ(stat(path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

// With the anchor recorded in the background, the log is synced before each record. Other
// processes that open and close the log meanwhile (the command line) must keep seeing every row:
// the sync must not disturb the connection's locks, or a closing reader takes the WAL with it.
TEST_F(ActivityStoreTest, BackgroundSyncKeepsRowsVisibleToOtherProcesses) {
  InMemoryKeychain keychain;
  auto anchor = std::make_shared<KeychainChainAnchor>(keychain);
  auto store = ActivityStore::open(path(), anchor, anchor->chainKey(), true);
  auto recorded = [&](int64_t id) {
    for (int wait = 0; wait < 100; ++wait) {
      if (anchor->head() && anchor->head()->id == id) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  };
  for (int round = 1; round <= 3; ++round) {
    store->append(loginEntry(round));
    ASSERT_TRUE(recorded(round));
    EXPECT_EQ(shellQuery("SELECT count(*) FROM activity"), std::to_string(round) + "\n");
  }
  EXPECT_EQ(store->verify(), std::nullopt);
}

// Eight threads append at once through one store (committed in groups, its anchor recorded in the
// background, as the agent does); another four through a second connection to the same file with
// its own anchor object on the same keychain, as a second process would.
TEST_F(ActivityStoreTest, ConcurrentAppendsKeepOneUnbrokenChain) {
  InMemoryKeychain keychain;
  auto anchorOne = std::make_shared<KeychainChainAnchor>(keychain);
  auto anchorTwo = std::make_shared<KeychainChainAnchor>(keychain);
  auto one = ActivityStore::open(path(), anchorOne, anchorOne->chainKey(), true);
  auto two = ActivityStore::open(path(), anchorTwo, anchorTwo->chainKey());
  constexpr int kPerThread = 25;
  std::vector<std::thread> threads;
  for (int t = 0; t < 12; ++t) {
    ActivityStore* store = t < 8 ? one.get() : two.get();
    threads.emplace_back([store, t] {
      for (int i = 0; i < kPerThread; ++i) store->append(loginEntry(t * 100 + i));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(shellQuery("SELECT count(*), min(id), max(id) FROM activity"), "300|1|300\n");
  EXPECT_EQ(one->verify(), std::nullopt);
  EXPECT_EQ(two->verify(), std::nullopt);
  one.reset();  // waits for the background recorder
  EXPECT_EQ(anchorOne->head()->id, 300);
  EXPECT_EQ(two->verify(), std::nullopt);
}

TEST_F(ActivityStoreTest, KeychainAnchorKeepsTheEndsAcrossRestarts) {
  InMemoryKeychain keychain;
  {
    auto anchor = std::make_shared<KeychainChainAnchor>(keychain);
    fill(*ActivityStore::open(path(), anchor, anchor->chainKey()), 6);
  }
  shell("DELETE FROM activity WHERE id = 6");
  auto anchor = std::make_shared<KeychainChainAnchor>(keychain);
  EXPECT_EQ(ActivityStore::open(path(), anchor, anchor->chainKey())->verify(),
            ChainProblem::truncated(6));
}

// A keychain that fails every call, to see the anchor's failures reach the caller.
class BrokenKeychain final : public Keychain {
 public:
  KeychainReadResult read(std::string_view, std::string_view) override {
    return {kKeychainIOError, {}};
  }
  KeychainStatus add(std::string_view, std::string_view, ByteView) override {
    return kKeychainIOError;
  }
  KeychainStatus update(std::string_view, std::string_view, ByteView) override {
    return kKeychainIOError;
  }
  KeychainStatus remove(std::string_view, std::string_view) override { return kKeychainIOError; }
};

TEST(KeychainChainAnchor, MakesTheKeyOnceAndStoresTheEnds) {
  InMemoryKeychain keychain;
  KeychainChainAnchor anchor(keychain), sameKeychain(keychain), otherService(keychain, "other");
  std::optional<SecureBytes> key = anchor.chainKey();
  ASSERT_TRUE(key);
  EXPECT_EQ(key->size(), 32u);
  EXPECT_EQ(sameKeychain.chainKey(), key);
  EXPECT_FALSE(otherService.chainKey() == key);

  EXPECT_EQ(anchor.head(), std::nullopt);
  ChainEnd end{0x0102030405060708, Bytes(32, 0xab)};
  anchor.setHead(end);
  anchor.setStart(ChainEnd{-1, Bytes(32, 0)});
  EXPECT_EQ(sameKeychain.head(), end);
  EXPECT_EQ(sameKeychain.start(), (ChainEnd{-1, Bytes(32, 0)}));
  EXPECT_EQ(keychain.read(KeychainChainAnchor::kService, "head").data.view()[0], 0x01);
  anchor.setStart(std::nullopt);
  EXPECT_EQ(sameKeychain.start(), std::nullopt);
  EXPECT_EQ(otherService.head(), std::nullopt);
}

// A keychain that counts the reads of its items.
class CountingKeychain final : public Keychain {
 public:
  explicit CountingKeychain(Keychain& inner) : inner_(inner) {}
  KeychainReadResult read(std::string_view service, std::string_view account) override {
    ++reads;
    return inner_.read(service, account);
  }
  KeychainStatus add(std::string_view service, std::string_view account, ByteView data) override {
    return inner_.add(service, account, data);
  }
  KeychainStatus update(std::string_view service, std::string_view account,
                        ByteView data) override {
    return inner_.update(service, account, data);
  }
  KeychainStatus remove(std::string_view service, std::string_view account) override {
    return inner_.remove(service, account);
  }
  std::optional<KeychainItemVersion> version(std::string_view service,
                                             std::string_view account) override {
    return inner_.version(service, account);
  }
  int reads = 0;

 private:
  Keychain& inner_;
};

// The ends are read at every append: an end that did not change is not read again, and a change
// by another process (another keychain on the same folder), a removal or a damaged item is seen
// at the next read.
TEST(KeychainChainAnchor, ReadsAnEndAgainOnlyWhenItChanged) {
  testing::TemporaryDirectory folder;
  FileKeychain ours(folder.path()), theirs(folder.path());
  CountingKeychain counting(ours);
  KeychainChainAnchor anchor(counting), other(theirs);
  const ChainEnd first{1, Bytes(32, 1)}, second{2, Bytes(32, 2)};
  other.setHead(first);
  EXPECT_EQ(anchor.head(), first);
  EXPECT_EQ(anchor.head(), first);
  EXPECT_EQ(anchor.start(), std::nullopt);
  EXPECT_EQ(anchor.start(), std::nullopt);
  EXPECT_EQ(counting.reads, 2);

  other.setHead(second);
  EXPECT_EQ(anchor.head(), second);
  other.setHead(std::nullopt);
  EXPECT_EQ(anchor.head(), std::nullopt);
  theirs.add(KeychainChainAnchor::kService, "head", Bytes(39, 0));
  EXPECT_THROW(anchor.head(), ActivityStoreError);
  EXPECT_EQ(counting.reads, 5);
}

TEST(KeychainChainAnchor, ReportsCorruptItemsAndKeychainFailures) {
  InMemoryKeychain keychain;
  KeychainChainAnchor anchor(keychain);
  keychain.add(KeychainChainAnchor::kService, "head", Bytes(39, 0));
  keychain.add(KeychainChainAnchor::kService, "chainKey", Bytes(16, 0));
  auto kindOf = [](auto call) {
    try {
      call();
    } catch (const ActivityStoreError& error) {
      return std::pair(error.kind(), error.code());
    }
    return std::pair(ActivityStoreError::Kind::sqlite, -1);
  };
  const auto kCorrupted = std::pair(ActivityStoreError::Kind::anchorCorrupted, 0);
  EXPECT_EQ(kindOf([&] { anchor.head(); }), kCorrupted);
  EXPECT_EQ(kindOf([&] { anchor.chainKey(); }), kCorrupted);

  BrokenKeychain broken;
  KeychainChainAnchor unavailable(broken);
  const auto kUnavailable = std::pair(ActivityStoreError::Kind::anchorUnavailable, -36);
  EXPECT_EQ(kindOf([&] { unavailable.chainKey(); }), kUnavailable);
  EXPECT_EQ(kindOf([&] { unavailable.start(); }), kUnavailable);
  EXPECT_EQ(kindOf([&] { unavailable.setHead(ChainEnd{1, Bytes(32, 0)}); }), kUnavailable);
  EXPECT_EQ(kindOf([&] { unavailable.setStart(std::nullopt); }), kUnavailable);
}

TEST_F(ActivityStoreTest, AnchorFailureIsReportedButKeepsTheEntry) {
  BrokenKeychain broken;
  auto store = ActivityStore::open(path(), std::make_shared<KeychainChainAnchor>(broken));
  EXPECT_THROW(store->append(loginEntry(1)), ActivityStoreError);
  EXPECT_THROW(store->append(loginEntry(2)), ActivityStoreError);
  EXPECT_EQ(shellQuery("SELECT count(*) FROM activity"), "2\n");
  EXPECT_THROW(store->verify(), ActivityStoreError);
  EXPECT_EQ(ActivityStore::open(path())->verify(), std::nullopt);
  // A purge must move the start, so it does not happen without the anchor.
  EXPECT_THROW(store->purge(Date{activitytest::kBase + 1000}, Date{}), ActivityStoreError);
  EXPECT_EQ(shellQuery("SELECT count(*) FROM activity"), "2\n");
}

struct OpenFailureCase {
  std::string name;
  std::filesystem::path relativePath;  // below the test's folder; empty is the folder itself
  int code;
};

void PrintTo(const OpenFailureCase& c, std::ostream* out) { *out << c.name; }

class ActivityStoreOpenFailure : public ActivityStoreTest,
                                 public ::testing::WithParamInterface<OpenFailureCase> {};

TEST_P(ActivityStoreOpenFailure, IsASQLiteError) {
  testing::writeFile(directory_.path() / "not-a-log", std::string(4096, 'x'));
  const std::filesystem::path& relative = GetParam().relativePath;
  const std::filesystem::path path =
      relative.empty() ? directory_.path() : directory_.path() / relative;
  try {
    ActivityStore::open(path);
    ADD_FAILURE() << path;
  } catch (const ActivityStoreError& error) {
    EXPECT_EQ(error.kind(), ActivityStoreError::Kind::sqlite);
    EXPECT_EQ(error.code(), GetParam().code) << error.what();
    EXPECT_FALSE(error.message().empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ActivityStoreOpenFailure,
    ::testing::Values(OpenFailureCase{"MissingFolder", "missing/activity.sqlite", SQLITE_CANTOPEN},
                      OpenFailureCase{"NotADatabase", "not-a-log", SQLITE_NOTADB},
                      OpenFailureCase{"AFolder", "", SQLITE_CANTOPEN}),
    [](const ::testing::TestParamInfo<OpenFailureCase>& tested) { return tested.param.name; });

TEST_F(ActivityStoreTest, WriteFailureIsASQLiteErrorAndLeavesTheChainIntact) {
  auto store = openStore();
  fill(*store, 2);
  shell("CREATE TRIGGER refuse BEFORE INSERT ON activity BEGIN SELECT RAISE(ABORT, 'full'); END");
  try {
    store->append(loginEntry(3));
    ADD_FAILURE();
  } catch (const ActivityStoreError& error) {
    EXPECT_EQ(error.code(), SQLITE_CONSTRAINT);
    EXPECT_EQ(error.message(), "full");
  }
  shell("DROP TRIGGER refuse");
  store->append(loginEntry(3));
  EXPECT_EQ(store->verify(), std::nullopt);
  EXPECT_EQ(anchor_->head()->id, 3);
}

// 2,500 rows put in with the shell, so that the export crosses pages; two of them are not
// entries and are counted as skipped.
TEST_F(ActivityStoreTest, ExportsInPagesOldestFirst) {
  auto store = openStore();
  std::string entryJSON = encodeActivityEntryText(loginEntry(1));
  shell(
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2500) "
      "INSERT INTO activity(date, json, prev, hash) SELECT i, CASE WHEN i IN (1000, 1001) "
      "THEN '[]' ELSE json_set('" +
      entryJSON + "', '$.app', 'app-' || i) END, x'', x'' FROM n");
  std::ostringstream csv, json;
  auto csvCount = store->exportEntries(csv, ActivityExportFormat::csv);
  EXPECT_EQ(csvCount.entries, 2498);
  EXPECT_EQ(csvCount.skipped, 2);
  std::string text = csv.str();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2499);
  EXPECT_LT(text.find(",app-999,"), text.find(",app-1002,"));

  store->exportEntries(json, ActivityExportFormat::json, Date{2001}, Date{2100});
  JSON document = parseJSON(json.str());
  ASSERT_EQ(document.size(), 100u);
  EXPECT_EQ(document[0]["app"], "app-2001");
  EXPECT_EQ(document[99]["app"], "app-2100");
}

TEST_F(ActivityStoreTest, ForEachEntryMayCallTheStore) {
  auto store = openStore();
  fill(*store, 3);
  int seen = 0;
  store->forEachEntry(std::nullopt, std::nullopt, [&](const ActivityEntry&) {
    ++seen;
    EXPECT_FALSE(store->entries({.limit = 1}).empty());
  });
  EXPECT_EQ(seen, 3);
}

}  // namespace
}  // namespace quorvane
