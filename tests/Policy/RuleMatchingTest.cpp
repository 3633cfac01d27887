#include <gtest/gtest.h>

#include <string>

#include "PolicyTestSupport.h"

namespace quorvane {
namespace {

using namespace policytest;

struct MatchCase {
  std::string name;
  Rule rule;
  PolicyRequest request;
  bool matches;
};

void PrintTo(const MatchCase& c, std::ostream* out) { *out << c.name; }

// Small builders so that each case states only the condition it is about.
Rule purposeRule(PurposeMatch purpose) { return makeRule(Decision::allow, std::move(purpose)); }

Rule keys(std::set<std::string> fingerprints) {
  Rule rule = makeRule(Decision::allow);
  rule.keyFingerprints = std::move(fingerprints);
  return rule;
}

Rule hosts(PurposeMatch purpose, std::set<std::string> hostKeys) {
  Rule rule = makeRule(Decision::allow, std::move(purpose));
  rule.hostKeys = std::move(hostKeys);
  return rule;
}

Rule forwarding(bool allowForwarded, bool forwardedOnly,
                PurposeMatch purpose = PurposeMatch::any()) {
  Rule rule = makeRule(Decision::deny, std::move(purpose));
  rule.allowForwarded = allowForwarded;
  rule.forwardedOnly = forwardedOnly;
  return rule;
}

Rule apps(std::set<std::string> identifiers) {
  Rule rule = makeRule(Decision::allow);
  rule.appIdentifiers = std::move(identifiers);
  return rule;
}

Rule directories(std::vector<std::string> prefixes) {
  Rule rule = makeRule(Decision::allow);
  rule.directoryPrefixes = std::move(prefixes);
  return rule;
}

Rule git(std::set<GitHint> hints) {
  Rule rule = makeRule(Decision::allow);
  rule.gitHints = std::move(hints);
  return rule;
}

PolicyRequest inDirectory(std::optional<std::string> directory) {
  RequestOrigin origin = signedApp();
  origin.workingDirectory = std::move(directory);
  return gitSigning(origin);
}

PolicyRequest withGitHint(std::optional<GitHint> hint) {
  RequestOrigin origin = signedApp();
  origin.gitHint = hint;
  return verifiedLogin(origin);
}

const PolicyRequest kDirect = verifiedLogin();
const PolicyRequest kForwarded = request(RequestPurpose::login(kHost, "git", {"SHA256:jump"}));
const PolicyRequest kUnverified = request(RequestPurpose::login(std::nullopt, "git"));
const PolicyRequest kOther = request(RequestPurpose::other());
const PolicyRequest kFileSigning = request(RequestPurpose::signature("file"));

class RuleMatching : public ::testing::TestWithParam<MatchCase> {};

TEST_P(RuleMatching, HoldsExactlyWhenEveryConditionHolds) {
  EXPECT_EQ(PolicyEngine::matches(GetParam().rule, GetParam().request), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, RuleMatching,
    ::testing::Values(
        MatchCase{"KeyListed", keys({"SHA256:other", kKey}), gitSigning(), true},
        MatchCase{"KeyNotListed", keys({"SHA256:other"}), gitSigning(), false},
        MatchCase{"OtherRuleOtherRequest", purposeRule(PurposeMatch::other()), kOther, true},
        MatchCase{"OtherRuleSignature", purposeRule(PurposeMatch::other()), gitSigning(), false},
        MatchCase{"LoginRuleSignature", purposeRule(PurposeMatch::login()), gitSigning(), false},
        MatchCase{"AnyRuleOther", purposeRule(PurposeMatch::any()), kOther, true},
        MatchCase{"NamespaceDiffers", purposeRule(PurposeMatch::signature("git")), kFileSigning,
                  false},
        MatchCase{"NoNamespaceIsAnyNamespace", purposeRule(PurposeMatch::signature()), kFileSigning,
                  true},
        MatchCase{"SignatureRuleLogin", purposeRule(PurposeMatch::signature()), kDirect, false},
        MatchCase{"HostsIgnoredForSignatures", hosts(PurposeMatch::any(), {"SHA256:x"}),
                  gitSigning(), true},
        MatchCase{"HostListed", hosts(PurposeMatch::login(), {kHost}), kDirect, true},
        MatchCase{"HostNotListed", hosts(PurposeMatch::login(), {"SHA256:x"}), kDirect, false},
        MatchCase{"UnverifiedHostNeverMatchesNamedHosts", hosts(PurposeMatch::any(), {kHost}),
                  kUnverified, false},
        MatchCase{"UnverifiedHostMatchesAnyHost", purposeRule(PurposeMatch::login()), kUnverified,
                  true},
        MatchCase{"ForwardedNeedsAllowForwarded", forwarding(false, false), kForwarded, false},
        MatchCase{"ForwardedAllowed", forwarding(true, false), kForwarded, true},
        MatchCase{"ForwardedOnlyMatchesForwarded", forwarding(true, true), kForwarded, true},
        MatchCase{"ForwardedOnlySkipsDirect", forwarding(true, true), kDirect, false},
        MatchCase{"ForwardedOnlySkipsSignatures", forwarding(true, true), gitSigning(), false},
        MatchCase{"ForwardedOnlyImpliesAllowForwarded", forwarding(false, true), kForwarded, true},
        MatchCase{"AppListed", apps({"com.example.editor"}), gitSigning(), true},
        MatchCase{"AppWithoutIdentifier", apps({"com.example.editor"}), gitSigning(unsignedApp()),
                  false},
        MatchCase{"DirectoryEqualsPrefix", directories({"/a/b"}), inDirectory("/a/b"), true},
        MatchCase{"DirectoryBelowPrefix", directories({"/a/b"}), inDirectory("/a/b/c"), true},
        MatchCase{"DirectorySharesOnlyLetters", directories({"/a/b"}), inDirectory("/a/bc"), false},
        MatchCase{"PrefixEndingInSlash", directories({"/a/b/"}), inDirectory("/a/b/c"), true},
        MatchCase{"PrefixEndingInSlashNotItsParent", directories({"/a/b/"}), inDirectory("/a/b"),
                  false},
        MatchCase{"RootFitsEveryAbsolutePath", directories({"/"}), inDirectory("/x/y"), true},
        MatchCase{"LaterPrefixFits", directories({"/x", "/a"}), inDirectory("/a/b"), true},
        MatchCase{"NoWorkingDirectory", directories({"/"}), inDirectory(std::nullopt), false},
        MatchCase{"GitHintListed", git({GitHint::fetch}), withGitHint(GitHint::fetch), true},
        MatchCase{"GitHintNotListed", git({GitHint::fetch}), withGitHint(GitHint::push), false},
        MatchCase{"NoGitHint", git({GitHint::fetch}), withGitHint(std::nullopt), false}),
    [](const ::testing::TestParamInfo<MatchCase>& param) { return param.param.name; });

}  // namespace
}  // namespace quorvane
