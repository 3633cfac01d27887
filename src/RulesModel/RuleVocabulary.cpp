#include "RulesModel/RuleVocabulary.h"

namespace quorvane {

std::string_view decisionLabel(Decision decision) {
  switch (decision) {
    case Decision::allow: return "Allow";
    case Decision::askLocal: return "Ask on this computer";
    case Decision::askRemote: return "Ask on my devices";
    case Decision::deny: return "Deny";
  }
  return "Deny";
}

std::string purposeLabel(const PurposeMatch& purpose) {
  if (const auto* signature = std::get_if<PurposeMatch::Signature>(&purpose.value)) {
    if (!signature->namespace_) return "Any signature (ssh-keygen -Y)";
    if (*signature->namespace_ == "git") return "Sign Git commits and tags";
    return "Signatures for “" + *signature->namespace_ + "”";
  }
  if (std::holds_alternative<PurposeMatch::Login>(purpose.value))
    return "Sign in (ssh, git fetch/push)";
  if (std::holds_alternative<PurposeMatch::Other>(purpose.value)) return "unknown signatures";
  return "Any purpose";
}

bool hasGuardrails(const Rule& rule) {
  return !rule.appIdentifiers.empty() || !rule.directoryPrefixes.empty() || !rule.gitHints.empty();
}

std::string_view ruleExplanation(const Rule& rule) {
  return hasGuardrails(rule) ? kGuardrailExplanation : kSecurityRuleExplanation;
}

std::string saveRuleConfirmation(std::string_view name) {
  return "save the rule “" + std::string(name) + "”";
}

std::string deleteRuleConfirmation(std::string_view name) {
  return "delete the rule “" + std::string(name) + "”";
}

}  // namespace quorvane
