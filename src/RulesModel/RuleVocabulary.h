#pragma once

#include <string>
#include <string_view>

#include "Policy/Decision.h"
#include "Policy/PurposeMatch.h"
#include "Policy/Rule.h"

namespace quorvane {

// The words in which rules are shown and edited.

// "Allow", "Ask on this Mac", "Ask on my devices", "Deny".
std::string_view decisionLabel(Decision decision);

// "Sign in (ssh, git fetch/push)", "Sign Git commits and tags", "Any signature (ssh-keygen -Y)",
// "unknown signatures"; a rule for every purpose is "Any purpose" and one for another signature
// namespace "Signatures for “NAMESPACE”".
std::string purposeLabel(const PurposeMatch& purpose);

// The two groups of conditions and their fields.
inline constexpr std::string_view kSecurityConditionsLabel = "Security conditions (verified)";
inline constexpr std::string_view kKeysLabel = "Keys (none = all keys)";
inline constexpr std::string_view kHostsLabel = "Hosts (none = all hosts)";
inline constexpr std::string_view kAllowForwardedLabel = "Also for forwarded connections (ssh -A)";
inline constexpr std::string_view kForwardedOnlyLabel = "Only forwarded connections (ssh -A)";
inline constexpr std::string_view kGuardrailsLabel = "Guardrails (can be imitated by other apps)";
inline constexpr std::string_view kAppsLabel = "Apps (none = any app)";
inline constexpr std::string_view kFoldersLabel = "Only in folders (comma separated)";
inline constexpr std::string_view kGitTransfersLabel = "Git transfers (none = any)";

inline constexpr std::string_view kSecurityRuleExplanation =
    "Security rule: based on facts Quorvane can verify.";
inline constexpr std::string_view kGuardrailExplanation =
    "Guardrail: based on process details other apps can imitate. Stops mistakes, not malware.";

// Whether the rule has a condition on process details (apps, folders, Git transfers), which
// other programs can imitate.
bool hasGuardrails(const Rule& rule);
// The explanation a rule shows: a rule with any guardrail is only as strong as its weakest
// condition, so it shows the guardrail explanation.
std::string_view ruleExplanation(const Rule& rule);

inline constexpr std::string_view kNoRulesText =
    "Without rules, Quorvane asks you every time. Add a rule from a template to stop asking for "
    "things you always allow.";
inline constexpr std::string_view kTamperedRulesText =
    "The rules file was changed outside Quorvane and is ignored. Every request asks until you "
    "save rules here again.";

// What the user confirms: "save the rule “NAME”", "delete the rule “NAME”".
std::string saveRuleConfirmation(std::string_view name);
std::string deleteRuleConfirmation(std::string_view name);

}  // namespace quorvane
