#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Policy/Rule.h"

namespace quorvane {

// A starting point for a rule: the title shown in the template menu and the rule it makes.
struct RuleTemplate {
  std::string title;
  Rule rule;

  friend bool operator==(const RuleTemplate&, const RuleTemplate&) = default;
};

// The templates, in menu order; each rule has a new random id. `hostKey` is a host key
// fingerprint the user picked (for example from the log); `codingAgent` the identifier of a coding
// agent. Without either there are two templates, with both five:
//   1. (hostKey)      "Always allow sign-in to this host"
//   2. (codingAgent)  "Coding agent: may fetch, asks to push, never signs", limited to hostKey
//                     when given; a push matches no rule and so asks
//      (codingAgent)  "Coding agent never signs commits"
//   3.                "Never allow forwarded sign-ins": refuses forwarded logins only
//   4.                "Git commits: ask on my iPhone"
std::vector<RuleTemplate> ruleTemplates(const std::optional<std::string>& hostKey,
                                        const std::optional<std::string>& codingAgent);

}  // namespace quorvane
