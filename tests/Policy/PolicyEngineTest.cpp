#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "PolicyTestSupport.h"

namespace quorvane {
namespace {

using namespace policytest;
using Reason = PolicyOutcome::Reason;
using enum Decision;

class PolicyEngineTest : public ::testing::Test {
 protected:
  PolicyOutcome evaluate(const PolicyRequest& request) { return engine.evaluate(request, now); }

  PolicyEngine engine;
  const Date now{1'800'000'000};
};

TEST_F(PolicyEngineTest, DenyRuleBeatsGrantAndEveryOtherRule) {
  engine.addGrant(gitSigning(), 300, now);
  ASSERT_EQ(evaluate(gitSigning()).reason, Reason::grant(now + 300));
  Rule denying = makeRule(deny, PurposeMatch::signature("git"), "no signing");
  engine.rules = {makeRule(allow), denying};
  EXPECT_EQ(evaluate(gitSigning()),
            (PolicyOutcome{deny, Reason::rule(denying.id, denying.name), false}));
}

TEST_F(PolicyEngineTest, BlockDeniesBeforeRulesAndGrants) {
  engine.rules = {makeRule(allow)};
  engine.addGrant(gitSigning(), 300, now);
  engine.limiter.recordDenial(gitSigning(), true, now);
  EXPECT_EQ(evaluate(gitSigning()),
            (PolicyOutcome{deny, Reason::blocked(now + kDenialBlockSeconds), false}));
}

struct StrictestCase {
  std::vector<Decision> decisions;  // of matching rules, in list order
  size_t winner;
};

void PrintTo(const StrictestCase& c, std::ostream* out) {
  for (Decision decision : c.decisions) *out << rawValue(decision) << " ";
}

class StrictestRule : public PolicyEngineTest,
                      public ::testing::WithParamInterface<StrictestCase> {};

TEST_P(StrictestRule, AnswersWithEarliestAmongEquals) {
  for (Decision decision : GetParam().decisions) engine.rules.push_back(makeRule(decision));
  const Rule& winner = engine.rules[GetParam().winner];
  EXPECT_EQ(evaluate(gitSigning()),
            (PolicyOutcome{winner.decision, Reason::rule(winner.id, winner.name),
                           winner.decision != deny}));
}

INSTANTIATE_TEST_SUITE_P(Orders, StrictestRule,
                         ::testing::Values(StrictestCase{{askRemote, askLocal}, 1},
                                           StrictestCase{{askLocal, askLocal}, 0},
                                           StrictestCase{{allow, askRemote, allow}, 1},
                                           StrictestCase{{askLocal, askRemote, allow}, 0},
                                           StrictestCase{{allow, deny, deny}, 1}));

// Stands for "the reason names the one rule of the case" in the table below.
const Reason kTheRule = Reason::rule(UUID{}, "");

struct FloorCase {
  PolicyRequest request;
  std::optional<Decision> ruleDecision;  // one rule matching everything, or none
  Decision defaultDecision;
  PolicyOutcome expected;
};

void PrintTo(const FloorCase& c, std::ostream* out) { PrintTo(c.expected, out); }

class WeakRequestFloor : public PolicyEngineTest,
                         public ::testing::WithParamInterface<FloorCase> {};

TEST_P(WeakRequestFloor, NeverAnswersBelowAskingOnThisMachine) {
  const FloorCase& c = GetParam();
  if (c.ruleDecision) engine.rules = {makeRule(*c.ruleDecision)};
  engine.defaultDecision = c.defaultDecision;
  PolicyOutcome expected = c.expected;
  if (expected.reason == kTheRule)
    expected.reason = Reason::rule(engine.rules[0].id, engine.rules[0].name);
  EXPECT_EQ(evaluate(c.request), expected);
}

const PolicyRequest kUnverified = request(RequestPurpose::login(std::nullopt, "git"));
const PolicyRequest kOther = request(RequestPurpose::other());

INSTANTIATE_TEST_SUITE_P(
    Cases, WeakRequestFloor,
    ::testing::Values(
        FloorCase{kUnverified, allow, askLocal, {askLocal, Reason::unverifiedHost(), false}},
        FloorCase{kUnverified, deny, askLocal, {deny, kTheRule, false}},
        FloorCase{kUnverified, std::nullopt, allow, {askLocal, Reason::unverifiedHost(), false}},
        FloorCase{kOther, std::nullopt, askRemote, {askLocal, Reason::otherPurpose(), false}},
        FloorCase{kOther, askRemote, allow, {askLocal, Reason::otherPurpose(), false}},
        FloorCase{kOther, askLocal, allow, {askLocal, kTheRule, false}},
        FloorCase{kOther, std::nullopt, deny, {deny, Reason::default_(), false}},
        FloorCase{verifiedLogin(), std::nullopt, askRemote, {askRemote, Reason::default_(), true}},
        FloorCase{verifiedLogin(unsignedApp()), allow, askLocal, {allow, kTheRule, false}}));

TEST_F(PolicyEngineTest, GrantAllowsUntilItsEndOnly) {
  engine.addGrant(gitSigning(), 300, now);
  EXPECT_EQ(engine.evaluate(gitSigning(), now + 299.9),
            (PolicyOutcome{allow, Reason::grant(now + 300), true}));
  EXPECT_EQ(engine.evaluate(gitSigning(), now + 300),
            (PolicyOutcome{askLocal, Reason::default_(), true}));
}

TEST_F(PolicyEngineTest, GrantFitsOnlyItsKeyProgramAndPurpose) {
  engine.addGrant(gitSigning(), 300, now);
  engine.addGrant(verifiedLogin(), 300, now);
  ASSERT_EQ(evaluate(verifiedLogin()).decision, allow);
  const std::pair<const char*, PolicyRequest> kNotFitting[] = {
      {"other key", request(RequestPurpose::signature("git"), signedApp(), "SHA256:key-two")},
      {"other app", gitSigning(signedApp("com.example.other"))},
      {"other team", gitSigning(signedApp("com.example.editor", "TEAM2"))},
      {"other namespace", request(RequestPurpose::signature("file"))},
      {"forwarded login", request(RequestPurpose::login(kHost, "git", {"SHA256:jump"}))},
      {"other user", request(RequestPurpose::login(kHost, "root"))},
      {"other host", request(RequestPurpose::login("SHA256:host-two", "git"))},
  };
  for (const auto& [label, asked] : kNotFitting)
    EXPECT_EQ(evaluate(asked).reason, Reason::default_()) << label;
}

TEST_F(PolicyEngineTest, UnsignedProgramNeverReceivesNorUsesGrant) {
  PolicyRequest asked = gitSigning(unsignedApp());
  engine.rules = {makeRule(askRemote)};
  engine.addGrant(asked, 300, now);
  EXPECT_TRUE(engine.grants.empty());
  engine.grants.push_back(Grant{kKey, asked.purpose, treeKey(asked.origin), now + 300});
  EXPECT_EQ(evaluate(asked),
            (PolicyOutcome{askRemote, Reason::rule(engine.rules[0].id, "rule"), false}));
}

TEST_F(PolicyEngineTest, AddGrantRefusesWindowsThatAreNotPositive) {
  for (double seconds : {0.0, -300.0, std::nan("")}) engine.addGrant(gitSigning(), seconds, now);
  EXPECT_TRUE(engine.grants.empty());
}

TEST_F(PolicyEngineTest, GrantsAreNotMergedAndTheFirstFittingOneAnswers) {
  engine.addGrant(gitSigning(), 300, now);
  engine.addGrant(gitSigning(), 900, now + 10);
  EXPECT_EQ(evaluate(gitSigning()).reason, Reason::grant(now + 300));

  // A new grant drops those that have ended.
  engine.addGrant(gitSigning(), 300, now + 300);
  EXPECT_EQ(engine.grants.size(), 2u);
  EXPECT_EQ(engine.activeGrants(now + 700), std::vector<Grant>{engine.grants[0]});
  engine.clearGrants();
  EXPECT_EQ(engine.evaluate(gitSigning(), now + 400).reason, Reason::default_());
}

// Random rule lists and requests: a matching deny rule always denies, and a login to an
// unverified host or a request of purpose `other` is never allowed or sent to a device alone.
TEST(PolicyEngineProperty, NeverWeakerThanMatchingDenyRuleOrWeakRequestFloor) {
  const std::vector<std::string> kKeys = {kKey, "SHA256:key-two"};
  const std::vector<std::string> kHosts = {kHost, "SHA256:host-two"};
  const std::vector<std::string> kApps = {"com.example.editor", "com.example.other"};
  const std::vector<std::string> kDirectories = {"/", "/a", "/a/b", "/c/"};
  const std::vector<std::string> kNamespaces = {"git", "file"};
  const Decision kDecisions[] = {allow, askLocal, askRemote, deny};
  const Date now{1'800'000'000};

  const PurposeMatch kMatches[] = {PurposeMatch::signature(), PurposeMatch::signature("git"),
                                   PurposeMatch::any(), PurposeMatch::login(),
                                   PurposeMatch::other()};

  for (uint32_t seed = 0; seed < 3000; ++seed) {
    std::mt19937 random(seed);
    auto chance = [&](int inverse) { return random() % inverse == 0; };
    auto pick = [&](const std::vector<std::string>& options) {
      return options[random() % options.size()];
    };
    auto some = [&](const std::vector<std::string>& options) {
      std::set<std::string> chosen;
      if (chance(2)) chosen = {pick(options), pick(options)};
      return chosen;
    };
    auto randomRequest = [&] {
      PolicyRequest made{pick(kKeys), RequestPurpose::other(),
                         chance(2) ? signedApp(pick(kApps)) : unsignedApp()};
      if (chance(2)) made.origin.workingDirectory = pick(kDirectories) + "b";
      if (chance(2)) made.origin.gitHint = chance(2) ? GitHint::fetch : GitHint::push;
      switch (random() % 3) {
        case 0:
          made.purpose = RequestPurpose::login(
              chance(3) ? std::nullopt : std::optional(pick(kHosts)), "git",
              chance(3) ? std::vector{pick(kHosts)} : std::vector<std::string>{});
          break;
        case 1: made.purpose = RequestPurpose::signature(pick(kNamespaces)); break;
      }
      return made;
    };

    PolicyEngine engine;
    engine.defaultDecision = kDecisions[random() % 4];
    for (int i = random() % 7; i > 0; --i) {
      Rule rule = makeRule(kDecisions[random() % 4]);
      rule.purpose = kMatches[random() % std::size(kMatches)];
      rule.keyFingerprints = some(kKeys);
      rule.hostKeys = some(kHosts);
      rule.appIdentifiers = some(kApps);
      if (chance(3)) rule.directoryPrefixes = {pick(kDirectories)};
      if (chance(3)) rule.gitHints = {GitHint::fetch};
      rule.allowForwarded = chance(2);
      rule.forwardedOnly = chance(4);
      engine.rules.push_back(rule);
    }
    PolicyRequest asked = randomRequest();
    for (int i = random() % 4; i > 0; --i)
      engine.addGrant(chance(2) ? asked : randomRequest(), 300, now);
    if (chance(8)) engine.limiter.recordDenial(asked, true, now);
    PolicyOutcome outcome = engine.evaluate(asked, now + 1);
    for (const Rule& rule : engine.rules) {
      bool matchingDeny = rule.decision == deny && PolicyEngine::matches(rule, asked);
      ASSERT_FALSE(matchingDeny && isStricter(deny, outcome.decision)) << "seed " << seed;
    }
    auto* login = std::get_if<RequestPurpose::Login>(&asked.purpose.value);
    if (std::holds_alternative<RequestPurpose::Other>(asked.purpose.value) ||
        (login && !login->hostKey)) {
      ASSERT_FALSE(isStricter(askLocal, outcome.decision)) << "seed " << seed;
    }
    ASSERT_TRUE(!outcome.windowAllowed || windowEligible(asked)) << "seed " << seed;
  }
}

}  // namespace
}  // namespace quorvane
