#include "Policy/Rule.h"

namespace quorvane {

Rule Rule::make(std::string name, Decision decision, PurposeMatch purpose) {
  Rule rule;
  rule.id = UUID::random();
  rule.name = std::move(name);
  rule.decision = decision;
  rule.purpose = std::move(purpose);
  return rule;
}

namespace {

std::set<std::string> decodeStringSet(const JSONReader& reader) {
  std::vector<std::string> elements = reader.strings();
  return {elements.begin(), elements.end()};
}

}  // namespace

JSON toJSON(const Rule& rule) {
  JSON gitHints = JSON::array();
  for (GitHint hint : rule.gitHints) gitHints.push_back(toJSON(hint));
  JSON json = {{"id", rule.id.uuidString()},
               {"name", rule.name},
               {"decision", toJSON(rule.decision)},
               {"keyFingerprints", rule.keyFingerprints},
               {"purpose", toJSON(rule.purpose)},
               {"hostKeys", rule.hostKeys},
               {"allowForwarded", rule.allowForwarded},
               {"appIdentifiers", rule.appIdentifiers},
               {"directoryPrefixes", rule.directoryPrefixes},
               {"gitHints", std::move(gitHints)}};
  if (rule.forwardedOnly) json["forwardedOnly"] = true;
  return json;
}

Rule decodeRule(const JSONReader& reader) {
  Rule rule;
  rule.id = reader.required("id").uuid();
  rule.name = reader.required("name").string();
  rule.decision = decodeDecision(reader.required("decision"));
  rule.keyFingerprints = decodeStringSet(reader.required("keyFingerprints"));
  rule.purpose = decodePurposeMatch(reader.required("purpose"));
  rule.hostKeys = decodeStringSet(reader.required("hostKeys"));
  rule.allowForwarded = reader.required("allowForwarded").boolean();
  rule.appIdentifiers = decodeStringSet(reader.required("appIdentifiers"));
  rule.directoryPrefixes = reader.required("directoryPrefixes").strings();
  for (const JSONReader& hint : reader.required("gitHints").array())
    rule.gitHints.insert(decodeGitHint(hint));
  if (auto value = reader.optional("forwardedOnly")) rule.forwardedOnly = value->boolean();
  return rule;
}

std::vector<Rule> decodeRules(const JSONReader& reader) { return reader.arrayOf<Rule>(decodeRule); }

}  // namespace quorvane
