#include <string>

#include "ActivityStoreTestSupport.h"
#include "Base/Hex.h"
#include "Crypto/Hash.h"

namespace quorvane {
namespace {

using activitytest::loginEntry;
using activitytest::testKey;

struct TamperCase {
  const char* name;
  const char* sql;  // run on a log of ten rows
  std::optional<ChainProblem> expected;
};

class ChainTampering : public activitytest::StoreTest,
                       public ::testing::WithParamInterface<TamperCase> {};

TEST_P(ChainTampering, IsReportedWithTheRowItHit) {
  auto store = openStore();
  fill(*store, 10);
  ASSERT_EQ(store->verify(), std::nullopt);
  shell(GetParam().sql);
  EXPECT_EQ(store->verify(), GetParam().expected);
  // The same from a new connection, as after a restart.
  store.reset();
  EXPECT_EQ(openStore()->verify(), GetParam().expected);
}

const TamperCase kTamperCases[] = {
    // Row 5's app "app-5" becomes "app-6".
    {"OneCharacterOfRow5",
     "UPDATE activity SET json = substr(json, 1, 12) || '6' || "
     "substr(json, 14) WHERE id = 5",
     ChainProblem::modified(5)},
    {"NewestTwoRowsDeleted", "DELETE FROM activity WHERE id > 8", ChainProblem::truncated(10)},
    {"EveryRowDeleted", "DELETE FROM activity", ChainProblem::truncated(10)},
    {"OldestThreeRowsDeleted", "DELETE FROM activity WHERE id <= 3",
     ChainProblem::truncatedStart(1)},
    {"MiddleRowDeleted", "DELETE FROM activity WHERE id = 5", ChainProblem::modified(6)},
    {"RowRelinked", "UPDATE activity SET prev = zeroblob(32) WHERE id = 7",
     ChainProblem::modified(7)},
    {"NewestHashReplaced", "UPDATE activity SET hash = zeroblob(32) WHERE id = 10",
     ChainProblem::modified(10)},
    {"RowsSwapped",
     "UPDATE activity SET id = -id WHERE id IN (3, 4); "
     "UPDATE activity SET id = 7 + id WHERE id < 0",
     ChainProblem::modified(3)},
    {"DateColumnIsNotCovered", "UPDATE activity SET date = 0 WHERE id = 3", std::nullopt},
};

INSTANTIATE_TEST_SUITE_P(Cases, ChainTampering, ::testing::ValuesIn(kTamperCases),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

using ChainVerification = activitytest::StoreTest;

TEST_F(ChainVerification, RemovedTailStaysVisibleAfterTheNextAppend) {
  auto store = openStore();
  fill(*store, 10);
  shell("DELETE FROM activity WHERE id > 8");
  store->append(loginEntry(11));
  // The new row links to the removed newest row that the anchor remembers.
  EXPECT_EQ(store->verify(), ChainProblem::modified(11));
}

TEST_F(ChainVerification, LogDeletedAndStartedAfreshIsReported) {
  fill(*openStore(), 3);
  std::filesystem::remove(path());
  auto store = openStore();
  store->append(loginEntry(4));
  EXPECT_EQ(store->verify(), ChainProblem::truncated(3));
}

TEST_F(ChainVerification, LogWithoutAnchorChecksLinksOnly) {
  auto store = ActivityStore::open(path());
  fill(*store, 5);
  EXPECT_EQ(store->verify(), std::nullopt);
  shell("DELETE FROM activity WHERE id > 3");
  EXPECT_EQ(store->verify(), std::nullopt);
  shell("UPDATE activity SET json = replace(json, 'app-2', 'app-9')");
  EXPECT_EQ(store->verify(), ChainProblem::modified(2));
}

TEST_F(ChainVerification, FirstRowLinksToThirtyTwoZeroBytes) {
  fill(*openStore(), 2);
  EXPECT_EQ(shellQuery("SELECT hex(prev) FROM activity WHERE id = 1"), std::string(64, '0') + "\n");
  EXPECT_EQ(shellQuery("SELECT count(*) FROM activity WHERE length(hash) = 32"), "2\n");
}

// Without a key anyone can rewrite the newest row with a matching hash; the anchor's head still
// remembers the old hash.
TEST_F(ChainVerification, UnkeyedRewriteOfNewestRowIsCaughtByTheHead) {
  anchor_ = std::make_shared<MemoryChainAnchor>();
  fill(*openStore(), 3);
  std::string json = encodeActivityEntryText(loginEntry(9));
  Bytes message =
      testing::hex(shellQuery("SELECT hex(prev) FROM activity WHERE id = 3").substr(0, 64));
  message.insert(message.end(), json.begin(), json.end());
  shell("UPDATE activity SET json = '" + json + "', hash = x'" +
        hexEncode(crypto::sha256(message)) + "' WHERE id = 3");
  EXPECT_EQ(ActivityStore::open(path())->verify(), std::nullopt);
  EXPECT_EQ(openStore()->verify(), ChainProblem::modified(3));
}

// A purge records the new start before it commits; if the commit then fails, the start names a
// row further on than the oldest one, which means more rows, not fewer.
TEST_F(ChainVerification, StartFurtherOnThanTheOldestRowIsNoRemoval) {
  auto store = openStore();
  fill(*store, 4);
  anchor_->setStart(ChainEnd{3, Bytes(32, 7)});
  EXPECT_EQ(store->verify(), std::nullopt);
  anchor_->setStart(ChainEnd{1, Bytes(32, 7)});
  EXPECT_EQ(store->verify(), ChainProblem::truncatedStart(1));
}

struct KeyCase {
  const char* name;
  std::optional<uint8_t> writtenWith, verifiedWith;
  std::optional<ChainProblem> expected;
};

class ChainKeys : public activitytest::StoreTest, public ::testing::WithParamInterface<KeyCase> {};

std::optional<SecureBytes> keyOf(std::optional<uint8_t> fill) {
  if (!fill) return std::nullopt;
  return testKey(*fill);
}

TEST_P(ChainKeys, RowsVerifyOnlyUnderTheKeyTheyWereWrittenWith) {
  fill(*ActivityStore::open(path(), nullptr, keyOf(GetParam().writtenWith)), 4);
  EXPECT_EQ(ActivityStore::open(path(), nullptr, keyOf(GetParam().verifiedWith))->verify(),
            GetParam().expected);
}

const KeyCase kKeyCases[] = {
    {"UnkeyedVerifiedUnkeyed", std::nullopt, std::nullopt, std::nullopt},
    {"KeyedVerifiedWithSameKey", 1, 1, std::nullopt},
    {"UnkeyedVerifiedWithKey", std::nullopt, 1, ChainProblem::modified(1)},
    {"KeyedVerifiedUnkeyed", 1, std::nullopt, ChainProblem::modified(1)},
    {"KeyedVerifiedWithOtherKey", 1, 2, ChainProblem::modified(1)},
};

INSTANTIATE_TEST_SUITE_P(Cases, ChainKeys, ::testing::ValuesIn(kKeyCases),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(ChainProblemMessage, NamesTheRowAsASigned64BitNumber) {
  EXPECT_EQ(ChainProblem::modified(5).message(),
            "The activity log was changed outside Quorvane (entry 5). Entries from then on may "
            "not be genuine.");
  EXPECT_EQ(ChainProblem::truncated(9223372036854775807).message(),
            "Entries were removed from the end of the activity log (expected up to entry "
            "9223372036854775807).");
  EXPECT_EQ(ChainProblem::truncatedStart(-3).message(),
            "Entries were removed from the start of the activity log outside Quorvane (expected "
            "from entry -3).");
}

}  // namespace
}  // namespace quorvane
