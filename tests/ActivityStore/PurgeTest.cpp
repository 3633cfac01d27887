#include <string>
#include <vector>

#include "ActivityStoreTestSupport.h"

namespace quorvane {
namespace {

using activitytest::kBase;
using activitytest::loginEntry;

class Purge : public activitytest::StoreTest {
 protected:
  // Rows 1..n dated kBase + minutes[i] minutes.
  void fillDated(ActivityStore& store, const std::vector<int>& minutes) {
    for (int minute : minutes) {
      ActivityEntry entry = loginEntry(minute);
      store.append(entry);
    }
  }
  std::string remainingIDs() const {
    return shellQuery("SELECT group_concat(id, ',') FROM (SELECT id FROM activity ORDER BY id)");
  }
  static Date minute(int m) { return Date{kBase + 60.0 * m}; }
};

TEST_F(Purge, DeletesOldRowsLogsItselfAndVerifiesClean) {
  auto store = openStore();
  fill(*store, 10);
  EXPECT_EQ(store->purge(minute(4), minute(20)), 3);
  EXPECT_EQ(store->verify(), std::nullopt);
  EXPECT_EQ(remainingIDs(), "4,5,6,7,8,9,10,11\n");
  EXPECT_EQ(anchor_->start()->id, 4);

  std::vector<ActivityEntry> newest = store->entries({.limit = 1});
  ASSERT_EQ(newest.size(), 1u);
  EXPECT_EQ(newest[0], ActivityStore::purgeEntry(3, minute(4), minute(20)));
  EXPECT_EQ(newest[0].outcome, ActivityEntry::Outcome::purged);
  EXPECT_EQ(newest[0].note, "3 entries before 2026-11-21T09:09:00Z deleted");

  // Still clean after a restart and further appends.
  store.reset();
  store = openStore();
  store->append(loginEntry(30));
  EXPECT_EQ(store->verify(), std::nullopt);
}

TEST_F(Purge, OfEveryRowLeavesOnlyItsOwnEntry) {
  auto store = openStore();
  fill(*store, 5);
  EXPECT_EQ(store->purge(minute(100), minute(100)), 5);
  EXPECT_EQ(remainingIDs(), "6\n");
  EXPECT_EQ(store->verify(), std::nullopt);
  store->append(loginEntry(101));
  EXPECT_EQ(store->verify(), std::nullopt);
}

TEST_F(Purge, ThatFindsNothingChangesNothing) {
  auto store = openStore();
  fill(*store, 3);
  EXPECT_EQ(store->purge(minute(1), minute(10)), 0);
  EXPECT_EQ(remainingIDs(), "1,2,3\n");
  EXPECT_EQ(ActivityStore::open(path())->purge(minute(1), minute(10)), 0);
}

// A row dated after the cut-off sits between old rows (a clock set back, two writers): the rows
// after it stay, so the chain keeps no hole.
TEST_F(Purge, DeletesOnlyTheOldestRunOfRows) {
  const std::pair<std::vector<int>, std::string> kCases[] = {
      {{1, 2, 9, 3, 4}, "3,4,5,6\n"},   {{1, 2, 3, 0, 4}, "6\n"},         {{9, 1, 2}, "1,2,3\n"},
      {{1, 6, 2, 7, 3}, "2,3,4,5,6\n"}, {{1, 6, 2, 7, 0}, "1,2,3,4,5\n"},
  };
  for (const auto& [minutes, remaining] : kCases) {
    std::filesystem::remove(path());
    anchor_ = std::make_shared<MemoryChainAnchor>(activitytest::testKey(1));
    auto store = openStore();
    fillDated(*store, minutes);
    store->purge(minute(5), minute(50));
    EXPECT_EQ(remainingIDs(), remaining) << minutes.size() << " " << minutes[2];
    EXPECT_EQ(store->verify(), std::nullopt);
  }
}

TEST_F(Purge, OfOldestRowsOutsideTheProgramIsReported) {
  auto store = openStore();
  fill(*store, 6);
  shell("DELETE FROM activity WHERE date < " + std::to_string(kBase + 60 * 3));
  EXPECT_EQ(store->verify(), ChainProblem::truncatedStart(1));
}

}  // namespace
}  // namespace quorvane
