#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "PolicyTestSupport.h"

namespace quorvane {
namespace {

using namespace policytest;

class DenialLimiterTest : public ::testing::Test {
 protected:
  static PolicyRequest program(int index, std::string key = kKey) {
    return request(RequestPurpose::signature("git"),
                   signedApp("com.example.app" + std::to_string(index)), std::move(key));
  }

  DenialLimiter limiter;
  const Date start{1'800'000'000};
};

TEST_F(DenialLimiterTest, NineDenialsFromNineProgramsLeaveKeyUsableTheTenthBlocksEverybody) {
  for (int i = 0; i < 9; ++i) limiter.recordDenial(program(i), false, start + i);
  EXPECT_EQ(limiter.blockedUntil(program(9), start + 9), std::nullopt);

  limiter.recordDenial(program(9), false, start + 9);
  Date end = start + 9 + kDenialBlockSeconds;
  EXPECT_EQ(limiter.blockedUntil(program(42), start + 9), end);
  EXPECT_EQ(limiter.blockedUntil(program(42), end - 0.1), end);
  EXPECT_EQ(limiter.blockedUntil(program(42), end), std::nullopt);
  EXPECT_EQ(limiter.blockedUntil(program(0, "SHA256:key-two"), start + 9), std::nullopt);
  // The count starts again from zero after a block.
  EXPECT_TRUE(limiter.denials.at(keyWideLimiterKey(program(0))).empty());
}

TEST_F(DenialLimiterTest, ThirdDenialFromOneProgramBlocksItForThatKeyOnly) {
  limiter.recordDenial(program(1), false, start);
  limiter.recordDenial(program(1), false, start + 1);
  EXPECT_EQ(limiter.blockedUntil(program(1), start + 1), std::nullopt);

  limiter.recordDenial(program(1), false, start + 2);
  EXPECT_EQ(limiter.blockedUntil(program(1), start + 2), start + 2 + kDenialBlockSeconds);
  EXPECT_EQ(limiter.blockedUntil(program(2), start + 2), std::nullopt);
  EXPECT_EQ(limiter.blockedUntil(program(1, "SHA256:key-two"), start + 2), std::nullopt);
}

TEST_F(DenialLimiterTest, DenyAndBlockBlocksAtOnceAndRestartsTheCount) {
  limiter.recordDenial(program(1), false, start);
  limiter.recordDenial(program(1), false, start + 1);
  limiter.recordDenial(program(1), true, start + 2);
  Date end = start + 2 + kDenialBlockSeconds;
  EXPECT_EQ(limiter.blockedUntil(program(1), start + 2), end);
  EXPECT_EQ(limiter.blockedUntil(program(2), start + 2), std::nullopt);
  // Had the two earlier denials still counted, this one would block again until a second later.
  limiter.recordDenial(program(1), false, start + 3);
  EXPECT_EQ(limiter.blockedUntil(program(1), end), std::nullopt);
}

class DenialWindow : public DenialLimiterTest,
                     public ::testing::WithParamInterface<std::pair<double, bool>> {};

// Denials at 0 s, 1 s and the given age of the first: the third blocks only while the first counts.
TEST_P(DenialWindow, CountsOnlyDenialsYoungerThanTheWindow) {
  auto [ageOfFirst, blocks] = GetParam();
  limiter.recordDenial(program(1), false, start);
  limiter.recordDenial(program(1), false, start + 1);
  limiter.recordDenial(program(1), false, start + ageOfFirst);
  EXPECT_EQ(limiter.blockedUntil(program(1), start + ageOfFirst).has_value(), blocks);
}

INSTANTIATE_TEST_SUITE_P(Ages, DenialWindow,
                         ::testing::Values(std::pair{599.9, true}, std::pair{600.0, false},
                                           std::pair{700.0, false}));

TEST_F(DenialLimiterTest, PruneDropsEndedBlocksAndOldDenials) {
  limiter.recordDenial(program(1), true, start);
  limiter.recordDenial(program(2), false, start + 300);
  limiter.prune(start + kDenialBlockSeconds);
  EXPECT_TRUE(limiter.blocks.empty());
  EXPECT_EQ(limiter.denials, (std::map<std::string, std::vector<Date>>{}));
}

// Pruning at any moment never changes what a later lookup answers, whatever denials follow.
TEST_F(DenialLimiterTest, PruningNeverChangesALaterOutcome) {
  const double kSteps[] = {0, 1, 59.9, 300, 599.9, 600, 899.9, 900};
  std::vector<PolicyRequest> requests;
  for (int i = 0; i < 3; ++i) {
    requests.push_back(program(i));
    requests.push_back(program(i, "SHA256:key-two"));
  }
  bool prunedSomething = false;
  for (uint32_t seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    DenialLimiter kept, pruned;
    Date now = start;
    for (int step = 0; step < 60; ++step) {
      now = now + kSteps[random() % std::size(kSteps)];
      const PolicyRequest& denied = requests[random() % requests.size()];
      bool block = random() % 8 == 0;
      kept.recordDenial(denied, block, now);
      pruned.recordDenial(denied, block, now);
      if (random() % 3 == 0) pruned.prune(now);
      prunedSomething = prunedSomething || kept != pruned;
      for (const PolicyRequest& asked : requests)
        ASSERT_EQ(kept.blockedUntil(asked, now), pruned.blockedUntil(asked, now))
            << "seed " << seed << " step " << step;
    }
  }
  EXPECT_TRUE(prunedSomething);
}

}  // namespace
}  // namespace quorvane
