#pragma once

#include <vector>

#include "Base/Date.h"
#include "Policy/Decision.h"
#include "Policy/DenialLimiter.h"
#include "Policy/Grant.h"
#include "Policy/PolicyOutcome.h"
#include "Policy/PolicyRequest.h"
#include "Policy/Rule.h"

namespace quorvane {

// Decides whether a key may sign a request: from the denial limiter's blocks, the user's rules,
// the grants of approval windows and a default. A plain value without a clock: every operation
// that depends on time takes `now`.
struct PolicyEngine {
  // The user's rules, in the user's order.
  std::vector<Rule> rules;
  // Grants of approval windows, oldest first; expired ones linger until the next `addGrant`.
  std::vector<Grant> grants;
  // The decision when no rule matches.
  Decision defaultDecision = Decision::askLocal;
  DenialLimiter limiter;

  // The outcome for `request` at `now`, in this order: a block denies; a matching deny rule
  // denies; a fitting grant allows, unless the request is a login to an unverified host or of the
  // purpose `other`; then the strictest matching rule (the earliest among equals) or the default
  // decides. A login to an unverified host and a request of purpose `other` are never answered
  // less strictly than by asking on this machine.
  PolicyOutcome evaluate(const PolicyRequest& request, Date now) const;

  // Remembers an approval of `request` for `seconds` from `now`. Does nothing when the request is
  // not window-eligible or `seconds` is not greater than 0; otherwise drops grants that have
  // ended and appends a new one (never merged with an identical grant).
  void addGrant(const PolicyRequest& request, double seconds, Date now);

  // The grants that still allow at `now`, in stored order.
  std::vector<Grant> activeGrants(Date now) const;

  // Ends every grant at once (approval windows revoked, or the agent locked).
  void clearGrants() { grants.clear(); }

  // Whether every condition of `rule` holds for `request`.
  static bool matches(const Rule& rule, const PolicyRequest& request);

  friend bool operator==(const PolicyEngine&, const PolicyEngine&) = default;
};

}  // namespace quorvane
