#include <functional>
#include <string>
#include <vector>

#include "ActivityModel/InMemoryActivityLog.h"
#include "ActivityStoreTestSupport.h"

namespace quorvane {
namespace {

using activitytest::kBase;
using activitytest::loginEntry;

// Entry i (dated minute i) carries app name kApps[i - 1].
const char* const kApps[] = {"100% sure",   "100 percent", "snake_case", "snakeXcase",
                             "back\\slash", "say \"hi\"",  "Grüße",      "plain"};

struct SearchCase {
  const char* name;
  ActivityQuery query;
  std::vector<int> expected;  // entry numbers, newest first
};

Date at(int minute) { return Date{kBase + 60.0 * minute}; }

// The same cases run against the SQLite log and the in-memory log, which must agree.
class Search : public activitytest::StoreTest,
               public ::testing::WithParamInterface<std::tuple<SearchCase, bool>> {};

TEST_P(Search, FindsWhatTheQuerySays) {
  const auto& [searchCase, useStore] = GetParam();
  std::unique_ptr<ActivityStore> store;
  InMemoryActivityLog memory;
  ActivityLog* log = &memory;
  if (useStore) log = (store = openStore()).get();
  for (int i = 1; i <= 8; ++i) {
    ActivityEntry entry = loginEntry(i);
    entry.app = kApps[i - 1];
    log->append(entry);
  }
  std::vector<int> found;
  for (const ActivityEntry& entry : log->entries(searchCase.query))
    found.push_back(static_cast<int>((entry.date.secondsSince1970 - kBase) / 60));
  EXPECT_EQ(found, searchCase.expected);
}

const SearchCase kSearchCases[] = {
    {"EverythingNewestFirst", {}, {8, 7, 6, 5, 4, 3, 2, 1}},
    {"Limit", {.limit = 3}, {8, 7, 6}},
    {"LimitZero", {.limit = 0}, {}},
    {"PercentIsLiteral", {.text = "%"}, {1}},
    {"PercentInsideText", {.text = "100%"}, {1}},
    {"UnderscoreIsLiteral", {.text = "e_c"}, {3}},
    {"BackslashIsLiteral", {.text = "k\\s"}, {5}},
    {"QuoteMatchesItsEscapedForm", {.text = "\"hi\""}, {6}},
    {"NonASCIIText", {.text = "üß"}, {7}},
    {"ASCIILettersIgnoreCase", {.text = "SNAKE"}, {4, 3}},
    {"NoMatch", {.text = "absent"}, {}},
    {"FromIncluded", {.from = at(6)}, {8, 7, 6}},
    {"ToIncluded", {.to = at(2)}, {2, 1}},
    {"RangeAndTextAndLimit", {.text = "100", .from = at(1), .to = at(4), .limit = 1}, {2}},
};

INSTANTIATE_TEST_SUITE_P(Cases, Search,
                         ::testing::Combine(::testing::ValuesIn(kSearchCases), ::testing::Bool()),
                         [](const auto& testCase) {
                           return std::string(std::get<0>(testCase.param).name) +
                                  (std::get<1>(testCase.param) ? "_SQLite" : "_InMemory");
                         });

using SearchStore = activitytest::StoreTest;

TEST_F(SearchStore, SkipsRowsThatAreNotEntries) {
  auto store = openStore();
  fill(*store, 3);
  shell("UPDATE activity SET json = '{\"broken\":' WHERE id = 2");
  EXPECT_EQ(store->entries({}).size(), 2u);
}

}  // namespace
}  // namespace quorvane
