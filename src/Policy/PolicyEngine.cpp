#include "Policy/PolicyEngine.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <variant>

namespace quorvane {

namespace {

using Reason = PolicyOutcome::Reason;

// The directory is the prefix itself or lies below it: "/a/b" fits "/a/b" and "/a/b/c" but not
// "/a/bc"; a prefix that ends in "/" (such as "/") needs no second one.
bool fitsDirectory(const std::string& directory, const std::string& prefix) {
  if (!directory.starts_with(prefix)) return false;
  return directory.size() == prefix.size() || prefix.ends_with('/') ||
         directory[prefix.size()] == '/';
}

// The host conditions, which apply only to a login under a `login` or `any` rule: named hosts need
// a verified host key among them, and a forwarded login needs `allowForwarded` (which a rule for
// forwarded logins only implies).
bool matchesHost(const Rule& rule, const RequestPurpose::Login& login) {
  if (!rule.hostKeys.empty() && (!login.hostKey || !rule.hostKeys.contains(*login.hostKey)))
    return false;
  return login.forwardedVia.empty() || rule.allowForwarded || rule.forwardedOnly;
}

// The purpose conditions, including `forwardedOnly`, and for logins the host conditions.
bool matchesPurpose(const Rule& rule, const RequestPurpose& purpose) {
  const auto* login = std::get_if<RequestPurpose::Login>(&purpose.value);
  if (rule.forwardedOnly && !(login && !login->forwardedVia.empty())) return false;
  if (const auto* wanted = std::get_if<PurposeMatch::Signature>(&rule.purpose.value)) {
    const auto* signature = std::get_if<RequestPurpose::Signature>(&purpose.value);
    return signature && (!wanted->namespace_ || *wanted->namespace_ == signature->namespace_);
  }
  if (std::holds_alternative<PurposeMatch::Other>(rule.purpose.value))
    return std::holds_alternative<RequestPurpose::Other>(purpose.value);
  if (std::holds_alternative<PurposeMatch::Login>(rule.purpose.value) && !login) return false;
  return !login || matchesHost(rule, *login);
}

// Logins to unverified hosts and `other` data are never answered below askLocal.
std::optional<Reason> floorReason(const RequestPurpose& purpose) {
  if (std::holds_alternative<RequestPurpose::Other>(purpose.value)) return Reason::otherPurpose();
  const auto* login = std::get_if<RequestPurpose::Login>(&purpose.value);
  if (login && !login->hostKey) return Reason::unverifiedHost();
  return std::nullopt;
}

bool grantedPurposeFits(const RequestPurpose& granted, const RequestPurpose& asked) {
  if (const auto* signature = std::get_if<RequestPurpose::Signature>(&granted.value)) {
    const auto* askedSignature = std::get_if<RequestPurpose::Signature>(&asked.value);
    return askedSignature && askedSignature->namespace_ == signature->namespace_;
  }
  if (const auto* login = std::get_if<RequestPurpose::Login>(&granted.value)) {
    // The grant's own forwardedVia is not compared: a grant is only made for a direct login.
    const auto* askedLogin = std::get_if<RequestPurpose::Login>(&asked.value);
    return askedLogin && login->hostKey && login->hostKey == askedLogin->hostKey &&
           login->user == askedLogin->user && askedLogin->forwardedVia.empty();
  }
  return false;
}

}  // namespace

bool PolicyEngine::matches(const Rule& rule, const PolicyRequest& request) {
  const RequestOrigin& origin = request.origin;
  if (!rule.keyFingerprints.empty() && !rule.keyFingerprints.contains(request.keyFingerprint))
    return false;
  if (!matchesPurpose(rule, request.purpose)) return false;
  if (!rule.appIdentifiers.empty() &&
      (!origin.appIdentifier || !rule.appIdentifiers.contains(*origin.appIdentifier)))
    return false;
  if (!rule.directoryPrefixes.empty()) {
    if (!origin.workingDirectory) return false;
    if (std::none_of(rule.directoryPrefixes.begin(), rule.directoryPrefixes.end(),
                     [&](const std::string& prefix) {
                       return fitsDirectory(*origin.workingDirectory, prefix);
                     }))
      return false;
  }
  if (!rule.gitHints.empty() && (!origin.gitHint || !rule.gitHints.contains(*origin.gitHint)))
    return false;
  return true;
}

PolicyOutcome PolicyEngine::evaluate(const PolicyRequest& request, Date now) const {
  if (auto until = limiter.blockedUntil(request, now))
    return {Decision::deny, Reason::blocked(*until), false};

  std::vector<const Rule*> matching;
  for (const Rule& rule : rules)
    if (matches(rule, request)) matching.push_back(&rule);

  // A matching deny rule beats every grant and every other rule.
  for (const Rule* rule : matching)
    if (rule->decision == Decision::deny)
      return {Decision::deny, Reason::rule(rule->id, rule->name), false};

  bool eligible = windowEligible(request);
  std::optional<Reason> floor = floorReason(request.purpose);
  if (!floor && request.origin.appTeamID) {
    std::string programKey = treeKey(request.origin);
    for (const Grant& grant : grants) {
      if (now < grant.until && grant.keyFingerprint == request.keyFingerprint &&
          grant.treeKey == programKey && grantedPurposeFits(grant.purpose, request.purpose))
        return {Decision::allow, Reason::grant(grant.until), eligible};
    }
  }

  // The strictest matching rule; a later rule replaces an earlier one only when strictly stricter.
  const Rule* strictest = nullptr;
  for (const Rule* rule : matching)
    if (!strictest || isStricter(rule->decision, strictest->decision)) strictest = rule;
  PolicyOutcome outcome =
      strictest ? PolicyOutcome{strictest->decision, Reason::rule(strictest->id, strictest->name),
                                eligible}
                : PolicyOutcome{defaultDecision, Reason::default_(), eligible};

  if (floor && isStricter(Decision::askLocal, outcome.decision))
    return {Decision::askLocal, *floor, false};
  return outcome;
}

void PolicyEngine::addGrant(const PolicyRequest& request, double seconds, Date now) {
  if (!windowEligible(request) || !(seconds > 0)) return;
  std::erase_if(grants, [now](const Grant& grant) { return grant.until <= now; });
  grants.push_back(
      Grant{request.keyFingerprint, request.purpose, treeKey(request.origin), now + seconds});
}

std::vector<Grant> PolicyEngine::activeGrants(Date now) const {
  std::vector<Grant> active;
  std::copy_if(grants.begin(), grants.end(), std::back_inserter(active),
               [now](const Grant& grant) { return now < grant.until; });
  return active;
}

}  // namespace quorvane
