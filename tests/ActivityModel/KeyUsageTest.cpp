#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ActivityModel/KeyUsage.h"
#include "ActivityTestSupport.h"

namespace quorvane {
namespace {

using Outcome = ActivityEntry::Outcome;

ActivityEntry use(double minute, const char* purpose, const char* host, bool verified,
                  Outcome outcome = Outcome::signed_, const char* key = "SHA256:key-one") {
  ActivityEntry entry;
  entry.date = Date{activitytest::kBase + 60 * minute};
  if (key) entry.keyFingerprint = key;
  entry.purpose = purpose;
  if (host) entry.host = host;
  entry.hostVerified = verified;
  entry.outcome = outcome;
  return entry;
}

Date at(double minute) { return Date{activitytest::kBase + 60 * minute}; }

struct UsageCase {
  const char* name;
  std::vector<ActivityEntry> entries;
  KeyUsage expected;  // of "SHA256:key-one"
};

class KeyUsageDerivation : public ::testing::TestWithParam<UsageCase> {};

TEST_P(KeyUsageDerivation, SummarisesTheKeysEntriesInAnyOrder) {
  KeyUsageCollector forwards, backwards;
  for (const ActivityEntry& entry : GetParam().entries) forwards.add(entry);
  for (auto entry = GetParam().entries.rbegin(); entry != GetParam().entries.rend(); ++entry)
    backwards.add(*entry);
  EXPECT_EQ(forwards.usage("SHA256:key-one"), GetParam().expected);
  EXPECT_EQ(backwards.usage("SHA256:key-one"), GetParam().expected);
}

const UsageCase kUsageCases[] = {
    {"GitSigningOnly",
     {use(1, "sign:git", nullptr, false), use(5, "sign:git", nullptr, false)},
     {{}, at(5), at(5)}},
    {"HostsCountedNewestFirst",
     {use(1, "login", "a.example", true), use(2, "login", "b.example", true),
      use(3, "login", "a.example", true), use(4, "sign:git", nullptr, false)},
     {{{"a.example", true, at(3), 2}, {"b.example", true, at(2), 1}}, at(4), at(4)}},
    {"VerifiedAndUnverifiedLoginsToOneNameAreTwoRows",
     {use(1, "login", "a.example", false), use(1, "login", "a.example", true),
      use(1, "login", "0.example", true)},
     {{{"0.example", true, at(1), 1},
       {"a.example", true, at(1), 1},
       {"a.example", false, at(1), 1}},
      std::nullopt,
      at(1)}},
    {"OnlySignaturesCount",
     {use(1, "login", "a.example", true, Outcome::denied),
      use(2, "sign:git", nullptr, false, Outcome::failed),
      use(3, "login", "b.example", true, Outcome::expired),
      use(4, "login", "c.example", true, Outcome::rejected),
      use(5, "other", nullptr, false, Outcome::signed_)},
     {{}, std::nullopt, at(5)}},
    {"OtherKeysAndKeylessEntriesIgnored",
     {use(1, "login", "a.example", true, Outcome::signed_, "SHA256:key-two"),
      use(2, "login", "a.example", true, Outcome::signed_, nullptr)},
     {}},
    {"LoginWithoutHostHasNoRow", {use(1, "login", nullptr, false)}, {{}, std::nullopt, at(1)}},
};

INSTANTIATE_TEST_SUITE_P(Cases, KeyUsageDerivation, ::testing::ValuesIn(kUsageCases),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(KeyUsageCollector, ListsEveryKeyWithCountedEntries) {
  KeyUsageCollector collector;
  collector.add(use(1, "login", "a.example", true, Outcome::signed_, "SHA256:key-two"));
  collector.add(use(2, "sign:git", nullptr, false));
  collector.add(use(3, "sign:git", nullptr, false, Outcome::denied, "SHA256:key-three"));
  auto usages = collector.usages();
  ASSERT_EQ(usages.size(), 2u);
  EXPECT_EQ(usages.at("SHA256:key-two").hosts.size(), 1u);
  EXPECT_EQ(usages.at("SHA256:key-one").lastGitSignature, at(2));
}

}  // namespace
}  // namespace quorvane
