#pragma once

#include <string>
#include <utility>
#include <variant>

#include "Base/Date.h"
#include "Base/UUID.h"
#include "Policy/Decision.h"

namespace quorvane {

// The answer of the policy engine for one request, and why.
struct PolicyOutcome {
  struct Reason {
    // The program, or the whole key, is blocked by the denial limiter until `until`.
    struct Blocked {
      Date until;
      friend bool operator==(const Blocked&, const Blocked&) = default;
    };
    // A user rule decided.
    struct Rule {
      UUID id;
      std::string name;
      friend bool operator==(const Rule&, const Rule&) = default;
    };
    // A grant of an approval window allowed, until `until`.
    struct Grant {
      Date until;
      friend bool operator==(const Grant&, const Grant&) = default;
    };
    // A login to a server whose host key was not proved must be asked on this machine.
    struct UnverifiedHost {
      friend bool operator==(const UnverifiedHost&, const UnverifiedHost&) = default;
    };
    // Data that is neither a login nor a namespaced signature must be asked on this machine.
    struct OtherPurpose {
      friend bool operator==(const OtherPurpose&, const OtherPurpose&) = default;
    };
    // No rule matched; the engine's default decision applies.
    struct Default {
      friend bool operator==(const Default&, const Default&) = default;
    };

    std::variant<Blocked, Rule, Grant, UnverifiedHost, OtherPurpose, Default> value;

    static Reason blocked(Date until) { return {Blocked{until}}; }
    static Reason rule(UUID id, std::string name) { return {Rule{id, std::move(name)}}; }
    static Reason grant(Date until) { return {Grant{until}}; }
    static Reason unverifiedHost() { return {UnverifiedHost{}}; }
    static Reason otherPurpose() { return {OtherPurpose{}}; }
    static Reason default_() { return {Default{}}; }

    friend bool operator==(const Reason&, const Reason&) = default;
  };

  Decision decision = Decision::askLocal;
  Reason reason = Reason::default_();
  // Whether the prompt may offer to approve for a window of time rather than once.
  bool windowAllowed = false;

  friend bool operator==(const PolicyOutcome&, const PolicyOutcome&) = default;
};

}  // namespace quorvane
