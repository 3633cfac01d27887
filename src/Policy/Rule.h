#pragma once

#include <set>
#include <string>
#include <vector>

#include "Base/JSONReader.h"
#include "Base/UUID.h"
#include "Policy/Decision.h"
#include "Policy/GitHint.h"
#include "Policy/PurposeMatch.h"

namespace quorvane {

// One of the user's standing rules. A rule matches a request when every condition holds; an
// empty set or list is no condition.
struct Rule {
  UUID id;
  // Shown in prompts and in the activity log.
  std::string name;
  Decision decision = Decision::askLocal;
  // Key fingerprints; empty means any key.
  std::set<std::string> keyFingerprints;
  PurposeMatch purpose = PurposeMatch::any();
  // Host-key fingerprints (logins only); empty means any host.
  std::set<std::string> hostKeys;
  // Whether a login that came through agent forwarding may match.
  bool allowForwarded = false;
  // Code-signing identifiers of the app; empty means any program.
  std::set<std::string> appIdentifiers;
  // Directory prefixes of the requesting process, tried in order; empty means any directory.
  std::vector<std::string> directoryPrefixes;
  // Git transfers; empty means any.
  std::set<GitHint> gitHints;
  // When true the rule matches only logins that came through agent forwarding (whatever
  // `allowForwarded` says), so that a deny rule can refuse forwarded logins and let direct ones
  // through.
  bool forwardedOnly = false;

  // A new rule with a fresh id that matches any key, host, program and folder.
  static Rule make(std::string name, Decision decision, PurposeMatch purpose);

  friend bool operator==(const Rule&, const Rule&) = default;
};

// JSON form: an object with the keys "id", "name", "decision", "keyFingerprints", "purpose",
// "hostKeys", "allowForwarded", "appIdentifiers", "directoryPrefixes", "gitHints", every one
// required on input, and "forwardedOnly", written only when true and false when missing. Sets are
// arrays in sorted order; duplicates in input collapse.
JSON toJSON(const Rule& rule);
Rule decodeRule(const JSONReader& reader);

// A JSON array of rules, in order.
std::vector<Rule> decodeRules(const JSONReader& reader);

}  // namespace quorvane
