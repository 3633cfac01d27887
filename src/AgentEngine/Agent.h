#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ActivityModel/ActivityLog.h"
#include "AgentEngine/Approval.h"
#include "AgentEngine/ClientWatch.h"
#include "AgentEngine/HostNameResolver.h"
#include "AgentEngine/SignAttempt.h"
#include "AgentEngine/SignInput.h"
#include "AgentState/HostPinStore.h"
#include "AgentState/LockStore.h"
#include "Base/Mutex.h"
#include "KeyStore/KeyStore.h"
#include "Platform/Clock.h"
#include "Policy/PolicyEngine.h"
#include "SSHWire/AgentResponse.h"
#include "SSHWire/ConnectionBindings.h"
#include "SSHWire/SignPurpose.h"

namespace quorvane {

// The services the agent uses. `hosts`, `pins` and `lockStore` may be null.
struct AgentServices {
  std::shared_ptr<KeyStore> keys;
  std::shared_ptr<Approver> approver;
  std::shared_ptr<ActivityLog> log;
  std::shared_ptr<HostNameResolver> hosts;
  std::shared_ptr<HostPinStore> pins;
  std::shared_ptr<LockStore> lockStore;
  std::shared_ptr<Clock> clock;
};

// The agent's shared state: keys, policy, approvals in flight, lock state. One per agent process;
// every connection thread calls into it. One mutex guards the state and is held only for lookups
// and updates, never while signing, logging or waiting for an approval.
class Agent {
 public:
  // Composes the reason shown when the user is asked: (key, purpose, origin, host display).
  using ReasonFormatter =
      std::function<std::string(const KeyRecord&, const RequestPurpose&, const RequestOrigin&,
                                const std::optional<std::string>&)>;

  // At most this many approval requests wait for one key at a time.
  static constexpr int kMaxPendingPerKey = 3;

  // Starts locked when the lock store says so.
  Agent(AgentServices services, PolicyEngine policy);

  // Every key in stored order as (public key blob, name).
  std::vector<AgentResponse::Identity> identities() const;

  // Locks: signatures are refused until `unlock`, approvals in flight end, windows are revoked.
  void lock();
  // Unlocks; only the application (through the control socket) does this, never an SSH client.
  void unlock();
  bool isLocked() const;

  // Replaces the rules (after a reload); approvals in flight end as "rule changed while waiting".
  void replaceRules(std::vector<Rule> rules);
  // Ends every approval window at once.
  void revokeWindows();
  // The blocks of the denial limiter in force now, the soonest to end first.
  std::vector<DenialBlock> activeBlocks() const;
  // Lifts the blocks in force that `lifted` selects (a user decision: the caller verifies the
  // user's presence first). Returns how many it lifted.
  size_t unblock(const std::function<bool(const DenialBlock&)>& lifted);
  void setRemoteApprovalAvailable(bool available);
  // Lets go of the confirmations (and the PINs they hold) of windows that ended by `now`.
  void forgetEndedWindows(Date now);
  bool remoteApprovalAvailable() const;
  uint64_t epoch() const;

  // The sign path: decides, maybe asks the approver (honouring `watch`), signs, and writes exactly
  // one activity entry. Returns the signature blob, or nothing for any refusal.
  std::optional<Bytes> sign(const SignInput& input, ClientWatch& watch);

  void setReasonFormatter(ReasonFormatter formatter);

 private:
  struct ContextWindow {
    std::shared_ptr<const AuthContext> context;
    Date until;
  };

  // Sets `locked` and raises the epoch.
  void lockLocked() REQUIRES(mutex_);
  void forgetEndedWindowsLocked(Date now) REQUIRES(mutex_);

  // The policy's verdict on one request, with what the wait after it needs to know; taken in
  // one hold of the mutex.
  struct Verdict {
    PolicyOutcome outcome;
    // What the agent acts on: the policy's decision, except that a key whose protection asks for
    // the user's presence at every signature is never allowed without a live context and never
    // sent to paired devices.
    Decision acted = Decision::deny;
    bool locked = false;
    bool tooManyPending = false;
    uint64_t epoch = 0;
    uint64_t lockGeneration = 0;
    std::shared_ptr<const AuthContext> context;  // a live window's, for a grant
    ReasonFormatter formatter;
  };

  // The steps of the sign path, in order. Each refusing step records why in the attempt's entry
  // and returns nothing (or false); `sign` writes that entry once, at the end.
  bool describe(SignAttempt& attempt) const;
  bool passesFixedChecks(SignAttempt& attempt) const;
  std::optional<Bytes> decideAndSign(SignAttempt& attempt, ClientWatch& watch);
  Verdict decide(const SignAttempt& attempt, const PolicyRequest& request) EXCLUDES(mutex_);
  ApprovalResult waitForApproval(const SignAttempt& attempt, const Verdict& verdict,
                                 ClientWatch& watch) EXCLUDES(mutex_);
  bool settleAfterWait(SignAttempt& attempt, const Verdict& verdict, const PolicyRequest& request,
                       const ApprovalResult& result, ClientWatch& watch) EXCLUDES(mutex_);
  std::optional<Bytes> signAndPin(SignAttempt& attempt, ClientWatch& watch);
  void record(const ActivityEntry& entry);

  const AgentServices services_;

  mutable Mutex mutex_;
  PolicyEngine policy_ GUARDED_BY(mutex_);
  uint64_t epoch_ GUARDED_BY(mutex_) = 0;
  // Raised by every lock, so that a wait can tell a lock from another reason the epoch moved.
  uint64_t lockGeneration_ GUARDED_BY(mutex_) = 0;
  std::map<UUID, int> pending_ GUARDED_BY(mutex_);  // by key record id
  bool locked_ GUARDED_BY(mutex_) = false;
  bool remoteApprovalAvailable_ GUARDED_BY(mutex_) = false;
  std::map<std::string, ContextWindow> contexts_ GUARDED_BY(mutex_);
  ReasonFormatter reasonFormatter_ GUARDED_BY(mutex_);
};

}  // namespace quorvane
