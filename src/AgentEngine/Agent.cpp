#include "AgentEngine/Agent.h"

#include <ctime>
#include <cstdio>

#include "AgentEngine/ApprovalText.h"
#include "AgentEngine/HostNaming.h"
#include "Crypto/Hash.h"
#include "KeyStore/KeyStoreError.h"
#include "SSHWire/SSHSignature.h"

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
  return protection == ProtectionClass::touchIDOnly || protection == ProtectionClass::touchIDOrWatch;
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

Agent::Agent(AgentServices services, PolicyEngine policy)
    : services_(std::move(services)), policy_(std::move(policy)) {
  if (services_.lockStore) locked_ = services_.lockStore->isLocked();
  reasonFormatter_ = [](const KeyRecord& key, const RequestPurpose& purpose,
                        const RequestOrigin& origin, const std::optional<std::string>& host) {
    return approvalReason(origin.appName, purpose, host, key.name);
  };
}

std::vector<AgentResponse::Identity> Agent::identities() const {
  std::vector<AgentResponse::Identity> list;
  for (const KeyRecord& record : services_.keys->records())
    list.push_back({record.publicKeyBlob, record.name});
  return list;
}

void Agent::lockLocked() {
  locked_ = true;
  ++epoch_;
  ++lockGeneration_;
  policy_.clearGrants();
  contexts_.clear();
}

void Agent::lock() {
  {
    std::lock_guard lock(mutex_);
    lockLocked();
  }
  if (services_.lockStore) services_.lockStore->setLocked(true);
}

void Agent::unlock() {
  {
    std::lock_guard lock(mutex_);
    locked_ = false;
  }
  if (services_.lockStore) services_.lockStore->setLocked(false);
}

bool Agent::isLocked() const {
  std::lock_guard lock(mutex_);
  return locked_;
}

void Agent::replaceRules(std::vector<Rule> rules) {
  std::lock_guard lock(mutex_);
  if (rules == policy_.rules) return;
  policy_.rules = std::move(rules);
  ++epoch_;
}

void Agent::revokeWindows() {
  std::lock_guard lock(mutex_);
  policy_.clearGrants();
  contexts_.clear();
  ++epoch_;
}

void Agent::setRemoteApprovalAvailable(bool available) {
  std::lock_guard lock(mutex_);
  remoteApprovalAvailable_ = available;
}

uint64_t Agent::epoch() const {
  std::lock_guard lock(mutex_);
  return epoch_;
}

void Agent::setReasonFormatter(ReasonFormatter formatter) {
  std::lock_guard lock(mutex_);
  reasonFormatter_ = std::move(formatter);
}

std::optional<Bytes> Agent::sign(const SignInput& input, ClientWatch& watch) {
  Date now = services_.clock->now();
  ActivityEntry entry;
  entry.date = now;
  entry.purpose = "other";
  entry.outcome = ActivityEntry::Outcome::rejected;
  entry.app = input.origin.appName;
  entry.chain = input.origin.chainPaths;
  entry.workingDirectory = input.origin.workingDirectory;
  entry.appIdentifier = input.origin.appIdentifier;

  // Every end goes through here: one entry per request, whatever happens. A log that cannot be
  // written does not change the answer.
  auto finish = [&](std::optional<Bytes> answer) {
    try {
      services_.log->append(entry);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "quorvane-agent: activity log: %s\n", error.what());
    }
    return answer;
  };
  auto refuse = [&](std::string note, ActivityEntry::Outcome outcome) {
    entry.note = std::move(note);
    entry.outcome = outcome;
    return finish(std::nullopt);
  };
  constexpr auto rejected = ActivityEntry::Outcome::rejected;

  if (isLocked()) return refuse("agent locked", rejected);

  std::optional<KeyRecord> record = services_.keys->record(input.keyBlob);
  if (!record) return refuse("unknown key", rejected);
  const std::string keyFingerprint = fingerprint(record->publicKeyBlob);
  entry.keyFingerprint = keyFingerprint;
  entry.keyName = record->name;

  RequestPurpose purpose = RequestPurpose::other();
  HostNameStatus hostName;
  std::optional<std::string> hostFingerprint;
  if (auto* login = std::get_if<SignPurpose::UserAuth>(&input.purpose.value)) {
    entry.purpose = "login";
    const SSHPublicKey* provedKey = nullptr;
    std::vector<std::string> via;
    if (std::holds_alternative<ConnectionBindings::HostVerdict::Mismatch>(input.verdict.value))
      return refuse("signature data does not match the bound session", rejected);
    if (auto* verified =
            std::get_if<ConnectionBindings::HostVerdict::Verified>(&input.verdict.value)) {
      provedKey = &verified->destination;
      hostFingerprint = verified->destination.fingerprint();
      for (const SSHPublicKey& hop : verified->via) via.push_back(hop.fingerprint());
    }
    // The client's command line names its first hop; a forwarded login goes further, so the
    // claim says nothing about its host.
    const std::optional<std::string> claimed = via.empty() ? input.claimedHost : std::nullopt;
    hostName = resolveHostName(provedKey, claimed, services_.hosts.get());
    purpose = RequestPurpose::login(hostFingerprint, login->user, via);
    // The login's user name has no field of its own: it goes with the host, "user@host".
    entry.host = login->user + "@" +
                 hostNameOf(hostName).value_or(hostFingerprint.value_or("unverified host"));
    entry.hostVerified = provedKey != nullptr;
    entry.hostKeyFingerprint = hostFingerprint;
    entry.forwardedVia = via;
  } else if (auto* sshsig = std::get_if<SignPurpose::SSHSig>(&input.purpose.value)) {
    entry.purpose = "sign:" + sshsig->namespace_;
    purpose = RequestPurpose::signature(sshsig->namespace_);
  }

  const std::optional<std::string> shownName = hostNameOf(hostName);
  if (services_.pins && shownName && hostFingerprint) {
    auto pinned = services_.pins->pinnedFingerprint(*shownName);
    if (pinned && *pinned != *hostFingerprint)
      return refuse("host name was confirmed for a different host key", rejected);
  }

  if (record->algorithm == KeyAlgorithm::rsa &&
      !signatureAlgorithm(SSHKeyType::rsa, input.flags))
    return refuse("SHA-1 RSA signatures (ssh-rsa) are refused", rejected);

  const PolicyRequest request{keyFingerprint, purpose, input.origin};
  const std::string program = treeKey(input.origin);

  // The lock check, the evaluation, the epoch snapshot and the pending check-and-raise happen in
  // one hold of the mutex, so that nothing can slip between the decision and its bookkeeping.
  PolicyOutcome outcome;
  // What the agent acts on: the policy's decision, except that a key whose protection asks for
  // the user's presence at every signature is never allowed without a live context and never
  // sent to paired devices.
  Decision acted = Decision::deny;
  const bool livePresence = needsLivePresence(record->protection);
  uint64_t epochAtStart = 0, lockGenerationAtStart = 0;
  bool tooManyPending = false, lockedNow = false;
  std::shared_ptr<const AuthContext> context;
  ReasonFormatter formatter;
  {
    std::lock_guard lock(mutex_);
    lockedNow = locked_;
    outcome = policy_.evaluate(request, now);
    epochAtStart = epoch_;
    lockGenerationAtStart = lockGeneration_;
    formatter = reasonFormatter_;
    if (std::holds_alternative<PolicyOutcome::Reason::Grant>(outcome.reason.value)) {
      auto found = contexts_.find(program);
      if (found != contexts_.end() && found->second.until > now) context = found->second.context;
    }
    acted = outcome.decision;
    if (livePresence && ((acted == Decision::allow && !context) || acted == Decision::askRemote))
      acted = Decision::askLocal;
    if (!lockedNow && (acted == Decision::askLocal || acted == Decision::askRemote)) {
      int& waiting = pending_[record->id];
      if (waiting >= kMaxPendingPerKey)
        tooManyPending = true;
      else
        ++waiting;
    }
  }
  if (lockedNow) return refuse("agent locked", rejected);
  entry.decision = std::string(rawValue(outcome.decision));
  const std::optional<std::string> shownHost = hostDisplay(hostName);

  switch (acted) {
    case Decision::deny:
      entry.decidedBy = decidedByText(outcome.reason);
      entry.outcome = ActivityEntry::Outcome::denied;
      return finish(std::nullopt);
    case Decision::allow:
      entry.decidedBy = decidedByText(outcome.reason);
      if (!context)
        context = std::make_shared<AuthContext>(
            AuthContext{formatter(*record, purpose, input.origin, shownHost), now});
      break;
    case Decision::askLocal:
    case Decision::askRemote: {
      if (tooManyPending) return refuse("too many pending requests", rejected);
      ApprovalRequest approval{UUID::random(),
                               *record,
                               purpose,
                               input.origin,
                               shownHost,
                               hostName,
                               hostFingerprint,
                               acted,
                               outcome.windowAllowed,
                               crypto::sha256(input.data),
                               now + kApprovalRequestSeconds,
                               formatter(*record, purpose, input.origin, shownHost)};
      ApprovalResult result;
      try {
        result = services_.approver->requestApproval(approval, watch.token());
      } catch (const std::exception& error) {
        std::fprintf(stderr, "quorvane-agent: approver failed: %s\n", error.what());
        result = {ApprovalResult::Cancelled{}};
      }
      const Date answeredAt = services_.clock->now();

      std::unique_lock lock(mutex_);
      if (--pending_[record->id] <= 0) pending_.erase(record->id);
      if (lockGeneration_ != lockGenerationAtStart || locked_) {
        lock.unlock();
        return refuse("locked while waiting", rejected);
      }
      if (epoch_ != epochAtStart) {
        lock.unlock();
        return refuse("rule changed while waiting", ActivityEntry::Outcome::denied);
      }
      if (watch.clientGone()) {
        policy_.limiter.recordDenial(request, false, answeredAt);
        lock.unlock();
        return refuse("client disconnected", ActivityEntry::Outcome::expired);
      }
      if (std::holds_alternative<ApprovalResult::Expired>(result.value)) {
        policy_.limiter.recordDenial(request, false, answeredAt);
        lock.unlock();
        return refuse("timeout", ActivityEntry::Outcome::expired);
      }
      if (auto* denied = std::get_if<ApprovalResult::Denied>(&result.value)) {
        policy_.limiter.recordDenial(request, denied->block, answeredAt);
        lock.unlock();
        entry.decidedBy = denied->by;
        entry.outcome = ActivityEntry::Outcome::denied;
        return finish(std::nullopt);
      }
      auto* approved = std::get_if<ApprovalResult::Approved>(&result.value);
      if (approved == nullptr) {
        lock.unlock();
        return refuse("approval cancelled", rejected);
      }
      entry.decidedBy = approved->by;
      context = approved->context;
      if (approved->scope.windowSeconds && outcome.windowAllowed) {
        const double seconds = *approved->scope.windowSeconds;
        policy_.addGrant(request, seconds, answeredAt);
        if (context) contexts_.insert_or_assign(program, ContextWindow{context, answeredAt + seconds});
      }
      break;
    }
  }

  try {
    Bytes signature = services_.keys->sign(*record, input.data, input.flags);
    entry.outcome = ActivityEntry::Outcome::signed_;
    if (services_.pins && hostFingerprint &&
        std::holds_alternative<HostNameStatus::Confirmed>(hostName.value)) {
      try {
        services_.pins->pin(*shownName, *hostFingerprint);
      } catch (const std::exception& error) {
        std::fprintf(stderr, "quorvane-agent: host pins: %s\n", error.what());
      }
    }
    return finish(std::move(signature));
  } catch (const std::exception& error) {
    entry.outcome = ActivityEntry::Outcome::failed;
    entry.note = error.what();
    return finish(std::nullopt);
  }
}

}  // namespace quorvane
