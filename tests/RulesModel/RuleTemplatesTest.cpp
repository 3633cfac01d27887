#include <gtest/gtest.h>

#include "Policy/PolicyEngine.h"
#include "RulesModel/RuleTemplates.h"
#include "RulesModel/RuleVocabulary.h"

namespace quorvane {
namespace {

const std::string kHost = "SHA256:host", kOtherHost = "SHA256:other";
const std::string kAgent = "/usr/bin/claude";

std::vector<std::string> titles(const std::vector<RuleTemplate>& templates) {
  std::vector<std::string> found;
  for (const RuleTemplate& made : templates) found.push_back(made.title);
  return found;
}

TEST(RuleTemplates, TitlesDependOnTheHostAndTheCodingAgentGiven) {
  EXPECT_EQ(
      titles(ruleTemplates(std::nullopt, std::nullopt)),
      (std::vector<std::string>{"Never allow forwarded sign-ins", "Git commits: ask on my phone"}));
  EXPECT_EQ(titles(ruleTemplates(kHost, std::nullopt)).front(),
            "Always allow sign-in to this host");
  EXPECT_EQ(
      titles(ruleTemplates(kHost, kAgent)),
      (std::vector<std::string>{"Always allow sign-in to this host",
                                "Coding agent: may fetch, asks to push, never signs",
                                "Coding agent never signs commits",
                                "Never allow forwarded sign-ins", "Git commits: ask on my phone"}));
  EXPECT_EQ(ruleTemplates(std::nullopt, kAgent).size(), 4u);
  EXPECT_EQ(ruleTemplates(kHost, kAgent)[1].rule.hostKeys, std::set<std::string>{kHost});
  EXPECT_TRUE(ruleTemplates(std::nullopt, kAgent)[0].rule.hostKeys.empty());
  auto first = ruleTemplates(kHost, kAgent), second = ruleTemplates(kHost, kAgent);
  EXPECT_NE(first[0].rule.id, second[0].rule.id);  // a fresh id every time
}

PolicyRequest request(RequestPurpose purpose, std::optional<std::string> app = std::nullopt,
                      std::optional<GitHint> hint = std::nullopt) {
  PolicyRequest made;
  made.keyFingerprint = "SHA256:key";
  made.purpose = std::move(purpose);
  made.origin.appName = "x";
  made.origin.appIdentifier = std::move(app);
  made.origin.appTeamID = "system";
  made.origin.gitHint = hint;
  return made;
}

RequestPurpose loginTo(const std::string& host, std::vector<std::string> via = {}) {
  return RequestPurpose::login(host, "git", std::move(via));
}

struct TemplateCase {
  std::string name;
  PolicyRequest asked;
  Decision decision;
  const char* ruleName;  // nullptr: the default decided
};

// The real engine with all five templates (and a default of askLocal) decides as the titles say.
class TemplatesDecide : public ::testing::TestWithParam<TemplateCase> {
 protected:
  void SetUp() override {
    for (RuleTemplate& made : ruleTemplates(kHost, kAgent)) engine.rules.push_back(made.rule);
  }
  PolicyEngine engine;
};

TEST_P(TemplatesDecide, AsTheTitlesSay) {
  PolicyOutcome outcome = engine.evaluate(GetParam().asked, Date{1000});
  EXPECT_EQ(outcome.decision, GetParam().decision);
  if (GetParam().ruleName == nullptr) {
    EXPECT_EQ(outcome.reason, PolicyOutcome::Reason::default_());
  } else {
    const auto* rule = std::get_if<PolicyOutcome::Reason::Rule>(&outcome.reason.value);
    ASSERT_NE(rule, nullptr);
    EXPECT_EQ(rule->name, GetParam().ruleName);
  }
}

INSTANTIATE_TEST_SUITE_P(
    RuleTemplates, TemplatesDecide,
    ::testing::Values(
        TemplateCase{"DirectLoginToTheHost", request(loginTo(kHost)), Decision::allow,
                     "Sign in to this host"},
        TemplateCase{"DirectLoginElsewhere", request(loginTo(kOtherHost)), Decision::askLocal,
                     nullptr},
        TemplateCase{"ForwardedLoginToTheHost", request(loginTo(kHost, {kOtherHost})),
                     Decision::deny, "No forwarded sign-ins"},
        TemplateCase{"ForwardedLoginElsewhere", request(loginTo(kOtherHost, {kHost})),
                     Decision::deny, "No forwarded sign-ins"},
        TemplateCase{"AgentFetches", request(loginTo(kHost), kAgent, GitHint::fetch),
                     Decision::allow, "Sign in to this host"},
        TemplateCase{"AgentPushesToAnotherHost",
                     request(loginTo(kOtherHost), kAgent, GitHint::push), Decision::askLocal,
                     nullptr},
        TemplateCase{"AgentFetchesFromAnotherHost",
                     request(loginTo(kOtherHost), kAgent, GitHint::fetch), Decision::askLocal,
                     nullptr},
        TemplateCase{"AgentSignsACommit", request(RequestPurpose::signature("git"), kAgent),
                     Decision::deny, "Coding agent never signs"},
        TemplateCase{"AgentSignsAnything", request(RequestPurpose::signature("file"), kAgent),
                     Decision::deny, "Coding agent never signs"},
        TemplateCase{"UserSignsACommit", request(RequestPurpose::signature("git"), "/usr/bin/git"),
                     Decision::askRemote, "Git commits via phone"},
        TemplateCase{"UserSignsAFile", request(RequestPurpose::signature("file")),
                     Decision::askLocal, nullptr}),
    [](const ::testing::TestParamInfo<TemplateCase>& tested) { return tested.param.name; });

// Without a host key the fetch rule covers every host, so a fetch is allowed and a push asks.
TEST(RuleTemplates, CodingAgentMayFetchEverywhereWhenNoHostIsGiven) {
  PolicyEngine engine;
  for (RuleTemplate& made : ruleTemplates(std::nullopt, kAgent)) engine.rules.push_back(made.rule);
  auto fetch = request(RequestPurpose::login(kOtherHost, "git"), kAgent, GitHint::fetch);
  EXPECT_EQ(engine.evaluate(fetch, Date{0}).decision, Decision::allow);
  fetch.origin.gitHint = GitHint::push;
  EXPECT_EQ(engine.evaluate(fetch, Date{0}).decision, Decision::askLocal);
}

TEST(RuleVocabulary, LabelsDecisionsPurposesAndExplanations) {
  EXPECT_EQ(decisionLabel(Decision::allow), "Allow");
  EXPECT_EQ(decisionLabel(Decision::askLocal), "Ask on this computer");
  EXPECT_EQ(decisionLabel(Decision::askRemote), "Ask on my devices");
  EXPECT_EQ(decisionLabel(Decision::deny), "Deny");
  EXPECT_EQ(purposeLabel(PurposeMatch::login()), "Sign in (ssh, git fetch/push)");
  EXPECT_EQ(purposeLabel(PurposeMatch::signature("git")), "Sign Git commits and tags");
  EXPECT_EQ(purposeLabel(PurposeMatch::signature()), "Any signature (ssh-keygen -Y)");
  EXPECT_EQ(purposeLabel(PurposeMatch::other()), "unknown signatures");
  auto templates = ruleTemplates(kHost, kAgent);
  EXPECT_EQ(ruleExplanation(templates[0].rule), kSecurityRuleExplanation);
  EXPECT_EQ(ruleExplanation(templates[1].rule), kGuardrailExplanation);
  EXPECT_EQ(saveRuleConfirmation("a"), "save the rule “a”");
  EXPECT_EQ(deleteRuleConfirmation("a"), "delete the rule “a”");
}

}  // namespace
}  // namespace quorvane
