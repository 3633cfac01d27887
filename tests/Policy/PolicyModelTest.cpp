#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

#include "Policy/WindowChoice.h"
#include "PolicyTestSupport.h"

namespace quorvane {
namespace {

using namespace policytest;

TEST(Decision, SortsByStrictnessNotByDeclaration) {
  std::vector<Decision> decisions = {Decision::deny, Decision::askLocal, Decision::askRemote,
                                     Decision::allow};
  std::sort(decisions.begin(), decisions.end(),
            [](Decision a, Decision b) { return isStricter(b, a); });
  EXPECT_EQ(decisions, (std::vector<Decision>{Decision::allow, Decision::askRemote,
                                              Decision::askLocal, Decision::deny}));
}

TEST(WindowChoice, OnlyTheSixLengthsAreChoices) {
  for (double seconds : {300.0, 900.0, 1800.0, 3600.0, 43200.0, 86400.0})
    EXPECT_EQ(WindowChoice::fromSeconds(seconds).value().seconds(), seconds);
  for (double seconds : {600.0, 0.0, -300.0, 899.5, 900.0001, 172800.0,
                         std::numeric_limits<double>::infinity(), std::nan("")})
    EXPECT_FALSE(WindowChoice::fromSeconds(seconds).has_value()) << seconds;
  EXPECT_EQ(WindowChoice::allCases().size(), 6u);
  EXPECT_EQ(WindowChoice::maximum().seconds(), 86400);
}

TEST(WindowChoice, OrdersByLengthWithAbsentChoiceLowest) {
  std::optional<WindowChoice> absent;
  EXPECT_TRUE(std::is_sorted(WindowChoice::allCases().begin(), WindowChoice::allCases().end()));
  EXPECT_LT(absent, WindowChoice::fromSeconds(300));
  EXPECT_LT(WindowChoice::fromSeconds(900), WindowChoice::fromSeconds(1800));
  EXPECT_EQ(std::max(absent, std::optional(WindowChoice::maximum())), WindowChoice::maximum());
}

struct TreeKeyCase {
  std::optional<std::string> team, identifier;
  std::vector<std::string> chainPaths;
  std::string treeKey;
};

class TreeKey : public ::testing::TestWithParam<TreeKeyCase> {};

TEST_P(TreeKey, NamesTheApprovedProgram) {
  const TreeKeyCase& c = GetParam();
  RequestOrigin origin;
  origin.appIdentifier = c.identifier;
  origin.appTeamID = c.team;
  origin.appName = "Editor";
  origin.chainPaths = c.chainPaths;
  EXPECT_EQ(treeKey(origin), c.treeKey);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, TreeKey,
    ::testing::Values(
        TreeKeyCase{"TEAM1", "com.example.editor", {"/bin/a"}, "TEAM1:com.example.editor"},
        TreeKeyCase{"TEAM1", std::nullopt, {"/bin/a"}, "TEAM1:Editor"},
        TreeKeyCase{std::nullopt, std::nullopt, {"/bin/a", "/bin/b"}, "unverified:/bin/b"},
        TreeKeyCase{std::nullopt, std::nullopt, {}, "unverified:Editor"},
        // An identifier without a team is not trusted.
        TreeKeyCase{std::nullopt, "com.example.editor", {"/bin/a"}, "unverified:/bin/a"}));

TEST(LimiterKeys, AreKeyAndProgramOrKeyAlone) {
  EXPECT_EQ(originLimiterKey(gitSigning()), "SHA256:key-one|TEAM1:com.example.editor");
  EXPECT_EQ(keyWideLimiterKey(gitSigning(unsignedApp())), "key|SHA256:key-one");
}

struct EligibilityCase {
  PolicyRequest request;
  bool eligible;
};

class WindowEligibility : public ::testing::TestWithParam<EligibilityCase> {};

// An approval for a window leaves a grant exactly when the request is eligible.
TEST_P(WindowEligibility, OnlySignedProgramsWithVerifiedPurposesGetAGrant) {
  PolicyEngine engine;
  engine.addGrant(GetParam().request, 300, Date{1'800'000'000});
  EXPECT_EQ(windowEligible(GetParam().request), GetParam().eligible);
  EXPECT_EQ(engine.grants.size(), GetParam().eligible ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WindowEligibility,
    ::testing::Values(EligibilityCase{gitSigning(), true}, EligibilityCase{verifiedLogin(), true},
                      EligibilityCase{gitSigning(unsignedApp()), false},
                      EligibilityCase{verifiedLogin(unsignedApp()), false},
                      EligibilityCase{request(RequestPurpose::login(std::nullopt, "git")), false},
                      EligibilityCase{request(RequestPurpose::login(kHost, "git", {"SHA256:jump"})),
                                      false},
                      EligibilityCase{request(RequestPurpose::other()), false}));

}  // namespace
}  // namespace quorvane
