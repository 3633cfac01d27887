#include "RulesModel/RuleTemplates.h"

namespace quorvane {
std::vector<RuleTemplate> ruleTemplates(const std::optional<std::string>& hostKey,
                                        const std::optional<std::string>& codingAgent) {
  std::vector<RuleTemplate> templates;
  if (hostKey) {
    Rule signIn = Rule::make("Sign in to this host", Decision::allow, PurposeMatch::login());
    signIn.hostKeys = {*hostKey};
    templates.push_back({"Always allow sign-in to this host", std::move(signIn)});
  }
  if (codingAgent) {
    Rule fetch = Rule::make("Coding agent may fetch", Decision::allow, PurposeMatch::login());
    fetch.appIdentifiers = {*codingAgent};
    fetch.gitHints = {GitHint::fetch};
    if (hostKey) fetch.hostKeys = {*hostKey};
    templates.push_back({"Coding agent: may fetch, asks to push, never signs", std::move(fetch)});

    Rule neverSigns =
        Rule::make("Coding agent never signs", Decision::deny, PurposeMatch::signature());
    neverSigns.appIdentifiers = {*codingAgent};
    templates.push_back({"Coding agent never signs commits", std::move(neverSigns)});
  }
  // A deny rule for every login would refuse direct sign-ins too; this one matches only logins
  // that came through agent forwarding.
  Rule noForwarded = Rule::make("No forwarded sign-ins", Decision::deny, PurposeMatch::login());
  noForwarded.allowForwarded = true;
  noForwarded.forwardedOnly = true;
  templates.push_back({"Never allow forwarded sign-ins", std::move(noForwarded)});

  templates.push_back(
      {"Git commits: ask on my phone",
       Rule::make("Git commits via phone", Decision::askRemote, PurposeMatch::signature("git"))});
  return templates;
}

}  // namespace quorvane
