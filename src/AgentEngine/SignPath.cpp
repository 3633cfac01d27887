#include <cstdio>
#include <ctime>

#include "AgentEngine/Agent.h"
#include "AgentEngine/HostNaming.h"
#include "Crypto/Hash.h"
#include "KeyStore/KeyStoreError.h"

// The sign path of the agent, one step after the other: describe the request, the fixed
// refusals, decide under the lock, wait for an approval, settle after the wait, sign and pin.

namespace quorvane {
namespace {

// A time of day in the user's time zone, short style ("14:05").
std::string shortTime(Date date) {
  std::time_t seconds = static_cast<std::time_t>(date.secondsSince1970);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[8];
  std::strftime(text, sizeof text, "%H:%M", &local);
  return text;
}

std::string ruleText(const std::string& name) { return "rule “" + name + "”"; }

// Keys whose protection stands for a fingerprint on this machine: every signature needs the
// user's presence, confirmed now or within a window the user approved.
bool needsLivePresence(ProtectionClass protection) {
  return protection == ProtectionClass::touchIDOnly ||
         protection == ProtectionClass::touchIDOrWatch;
}

std::string decidedByText(const PolicyOutcome::Reason& reason) {
  struct Visitor {
    std::string operator()(const PolicyOutcome::Reason::Blocked& r) {
      return "blocked until " + shortTime(r.until) +
             ": too many denied or unanswered requests from this program";
    }
    std::string operator()(const PolicyOutcome::Reason::Rule& r) { return ruleText(r.name); }
    std::string operator()(const PolicyOutcome::Reason::Grant& r) {
      return "approval window until " + shortTime(r.until);
    }
    std::string operator()(const PolicyOutcome::Reason::UnverifiedHost&) { return "default"; }
    std::string operator()(const PolicyOutcome::Reason::OtherPurpose&) { return "default"; }
    std::string operator()(const PolicyOutcome::Reason::Default&) { return "default"; }
  };
  return std::visit(Visitor{}, reason.value);
}

}  // namespace

std::optional<Bytes> Agent::sign(const SignInput& input, ClientWatch& watch) {
  SignAttempt attempt(input, services_.clock->now());
  std::optional<Bytes> signature;
  if (describe(attempt) && passesFixedChecks(attempt)) signature = decideAndSign(attempt, watch);
  record(attempt.entry);
  return signature;
}

// Every end goes through here: one entry per request, whatever happens. A log that cannot be
// written does not change the answer.
void Agent::record(const ActivityEntry& entry) {
  try {
    services_.log->append(entry);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvane-agent: activity log: %s\n", error.what());
  }
}

bool Agent::describe(SignAttempt& attempt) const {
  std::optional<KeyRecord> key = services_.keys->record(attempt.input.keyBlob);
  if (!key) return attempt.refuse("unknown key"), false;
  attempt.setKey(std::move(*key));

  const SignInput& input = attempt.input;
  if (auto* login = std::get_if<SignPurpose::UserAuth>(&input.purpose.value)) {
    const SSHPublicKey* provedKey = nullptr;
    std::optional<std::string> provedFingerprint;
    std::vector<std::string> via;
    if (auto* verified =
            std::get_if<ConnectionBindings::HostVerdict::Verified>(&input.verdict.value)) {
      provedKey = &verified->destination;
      provedFingerprint = verified->destination.fingerprint();
      for (const SSHPublicKey& hop : verified->via) via.push_back(hop.fingerprint());
    }
    // The client's command line names its first hop; a forwarded login goes further, so the
    // claim says nothing about its host.
    const std::optional<std::string> claimed = via.empty() ? input.claimedHost : std::nullopt;
    attempt.setLogin(login->user, resolveHostName(provedKey, claimed, services_.hosts.get()),
                     std::move(provedFingerprint), std::move(via), provedKey != nullptr);
  } else if (auto* sshsig = std::get_if<SignPurpose::SSHSig>(&input.purpose.value)) {
    attempt.setSignature(sshsig->namespace_);
  }
  return true;
}

// Refusals that no rule and no user can lift: a login whose data does not match its session, a
// host name confirmed earlier for another host key, and RSA signatures with SHA-1.
bool Agent::passesFixedChecks(SignAttempt& attempt) const {
  if (std::holds_alternative<ConnectionBindings::HostVerdict::Mismatch>(
          attempt.input.verdict.value) &&
      std::holds_alternative<SignPurpose::UserAuth>(attempt.input.purpose.value))
    return attempt.refuse("signature data does not match the bound session"), false;
  const std::optional<std::string> shownName = attempt.shownName();
  if (services_.pins && shownName && attempt.hostFingerprint) {
    auto pinned = services_.pins->pinnedFingerprint(*shownName);
    if (pinned && *pinned != *attempt.hostFingerprint)
      return attempt.refuse("host name was confirmed for a different host key"), false;
  }
  if (KeyStore::refusesSHA1(*attempt.key, attempt.input.flags))
    return attempt.refuse("SHA-1 RSA signatures (ssh-rsa) are refused"), false;
  return true;
}

std::optional<Bytes> Agent::decideAndSign(SignAttempt& attempt, ClientWatch& watch) {
  const PolicyRequest request{attempt.keyFingerprint, attempt.purpose, attempt.input.origin};
  const Verdict verdict = decide(attempt, request);
  if (verdict.locked) return attempt.refuse("agent locked");
  attempt.entry.decision = std::string(rawValue(verdict.outcome.decision));

  switch (verdict.acted) {
    case Decision::deny: return attempt.deny(decidedByText(verdict.outcome.reason));
    case Decision::allow:
      attempt.entry.decidedBy = decidedByText(verdict.outcome.reason);
      attempt.context = verdict.context;
      break;
    case Decision::askLocal:
    case Decision::askRemote: {
      if (verdict.tooManyPending) return attempt.refuse("too many pending requests");
      const ApprovalResult result = waitForApproval(attempt, verdict, watch);
      if (!settleAfterWait(attempt, verdict, request, result, watch)) return std::nullopt;
      break;
    }
  }
  return signAndPin(attempt, watch);
}

// The lock check, the evaluation, the epoch snapshot and the pending check-and-raise happen in
// one hold of the mutex, so that nothing can slip between the decision and its bookkeeping.
Agent::Verdict Agent::decide(const SignAttempt& attempt, const PolicyRequest& request) {
  const bool livePresence = needsLivePresence(attempt.key->protection);
  Verdict verdict;
  MutexLock lock(mutex_);
  forgetEndedWindowsLocked(attempt.now);
  verdict.locked = locked_;
  verdict.outcome = policy_.evaluate(request, attempt.now);
  verdict.epoch = epoch_;
  verdict.lockGeneration = lockGeneration_;
  verdict.formatter = reasonFormatter_;
  if (std::holds_alternative<PolicyOutcome::Reason::Grant>(verdict.outcome.reason.value)) {
    auto found = contexts_.find(treeKey(attempt.input.origin));
    if (found != contexts_.end() && found->second.until > attempt.now)
      verdict.context = found->second.context;
  }
  Decision acted = verdict.outcome.decision;
  if (livePresence &&
      ((acted == Decision::allow && !verdict.context) || acted == Decision::askRemote))
    acted = Decision::askLocal;
  verdict.acted = acted;
  if (!verdict.locked && (acted == Decision::askLocal || acted == Decision::askRemote)) {
    int& waiting = pending_[attempt.key->id];
    if (waiting >= kMaxPendingPerKey)
      verdict.tooManyPending = true;
    else
      ++waiting;
  }
  return verdict;
}

ApprovalResult Agent::waitForApproval(const SignAttempt& attempt, const Verdict& verdict,
                                      ClientWatch& watch) {
  const KeyRecord& key = *attempt.key;
  const RequestOrigin& origin = attempt.input.origin;
  const std::optional<std::string> shownHost = hostDisplay(attempt.hostName);
  ApprovalRequest approval{UUID::random(),
                           key,
                           attempt.purpose,
                           origin,
                           shownHost,
                           attempt.hostName,
                           attempt.hostFingerprint,
                           verdict.acted,
                           verdict.outcome.windowAllowed,
                           crypto::sha256(attempt.input.data),
                           attempt.now + kApprovalRequestSeconds,
                           verdict.formatter(key, attempt.purpose, origin, shownHost)};
  try {
    return services_.approver->requestApproval(approval, watch.token());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvane-agent: approver failed: %s\n", error.what());
    return {ApprovalResult::Cancelled{}};
  }
}

// After the wait, under the lock again: the request counts as waiting no longer, and only an
// approval that nothing overtook (a lock, a rule change, the client leaving) lets it sign. A
// window the user chose is granted here.
bool Agent::settleAfterWait(SignAttempt& attempt, const Verdict& verdict,
                            const PolicyRequest& request, const ApprovalResult& result,
                            ClientWatch& watch) {
  const Date answeredAt = services_.clock->now();
  MutexLock lock(mutex_);
  if (--pending_[attempt.key->id] <= 0) pending_.erase(attempt.key->id);
  if (lockGeneration_ != verdict.lockGeneration || locked_)
    return attempt.refuse("locked while waiting"), false;
  if (epoch_ != verdict.epoch)
    return attempt.refuse("rule changed while waiting", ActivityEntry::Outcome::denied), false;
  if (watch.clientGone()) {
    policy_.limiter.recordDenial(request, false, answeredAt);
    return attempt.refuse("client disconnected", ActivityEntry::Outcome::expired), false;
  }
  if (std::holds_alternative<ApprovalResult::Expired>(result.value)) {
    policy_.limiter.recordDenial(request, false, answeredAt);
    return attempt.refuse("timeout", ActivityEntry::Outcome::expired), false;
  }
  if (auto* denied = std::get_if<ApprovalResult::Denied>(&result.value)) {
    policy_.limiter.recordDenial(request, denied->block, answeredAt);
    return attempt.deny(denied->by), false;
  }
  auto* approved = std::get_if<ApprovalResult::Approved>(&result.value);
  if (approved == nullptr) return attempt.refuse("approval cancelled"), false;
  attempt.entry.decidedBy = approved->by;
  attempt.context = approved->context;
  if (approved->scope.windowSeconds && verdict.outcome.windowAllowed) {
    const double seconds = *approved->scope.windowSeconds;
    policy_.addGrant(request, seconds, answeredAt);
    if (approved->context)
      contexts_.insert_or_assign(treeKey(attempt.input.origin),
                                 ContextWindow{approved->context, answeredAt + seconds});
  }
  return true;
}

// Signs, and pins a host name that known_hosts confirmed to the host key the session proved.
std::optional<Bytes> Agent::signAndPin(SignAttempt& attempt, ClientWatch& watch) {
  // A TPM takes from tens to hundreds of milliseconds per signature, and signs one at a time:
  // this thread tells the server that it waits, so that other clients are served meanwhile.
  if (attempt.key->protection != ProtectionClass::imported) (void)watch.token();
  // The PIN that the user gave for this key with the approval (or its window).
  const SecureBytes* pin = nullptr;
  if (attempt.context && attempt.context->pin && attempt.context->pinKey == attempt.key->id)
    pin = attempt.context->pin.get();
  try {
    Bytes signature =
        services_.keys->sign(*attempt.key, attempt.input.data, attempt.input.flags, pin);
    attempt.entry.outcome = ActivityEntry::Outcome::signed_;
    if (services_.pins && attempt.hostFingerprint &&
        std::holds_alternative<HostNameStatus::Confirmed>(attempt.hostName.value)) {
      try {
        services_.pins->pin(*attempt.shownName(), *attempt.hostFingerprint);
      } catch (const std::exception& error) {
        std::fprintf(stderr, "quorvane-agent: host pins: %s\n", error.what());
      }
    }
    return signature;
  } catch (const std::exception& error) {
    attempt.entry.outcome = ActivityEntry::Outcome::failed;
    attempt.entry.note = error.what();
    return std::nullopt;
  }
}

}  // namespace quorvane
