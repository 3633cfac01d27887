#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>

#include "AgentEngine/Agent.h"
#include "AgentEngine/LocalApprover.h"
#include "AgentEngine/PresenceGate.h"
#include "Base/JSONReader.h"
#include "Base/Mutex.h"
#include "Platform/Clock.h"
#include "Platform/PresenceVerifier.h"

namespace quorvane {

// Serves connections on the control socket (the protocol is described with the message names in
// AgentCore/ControlProtocol.h): reload, lock and unlock, the list of waiting approval requests,
// answers to them, and a stream of new requests for prompt frontends. Approvals, unlock, the
// resume of remote approval and changes of the presence setting pass the presence gate first,
// with the verification's prompts relayed to the client that asked.
class ControlService {
 public:
  struct Hooks {
    std::function<void()> reload;        // re-read keys, rules, pins and settings
    std::function<void()> pauseRemote;   // pause remote approval (and remember it)
    std::function<void()> resumeRemote;  // resume remote approval (and remember it)
    // Stores the presence setting; throws when it cannot.
    std::function<void(bool)> savePresence;
    // Checks the PIN of a hardware key that has one (KeyStore::checkPIN); throws KeyStoreError
    // (wrongPIN, pinLockedOut). Empty: no key has a PIN, and none is asked for.
    std::function<void(const KeyRecord&, const SecureBytes&)> checkPIN = nullptr;
    // Whether the relay that carries requests to paired devices is out of reach now. Empty:
    // never.
    std::function<bool()> remoteOffline = nullptr;
  };

  // How long the agent waits for a reply to a verification prompt.
  static constexpr int kPromptReplySeconds = 60;

  ControlService(Agent& agent, LocalApprover& approver, PresenceGate& presence, Hooks hooks);

  // Serves one connection until the client hangs up or `shutdown` stops. Clients of another user
  // are closed without an answer.
  void serve(int fd, std::stop_token shutdown);

  // The answer to one message (every message but "watch"); a verification talks through
  // `conversation`.
  JSON handle(const JSON& message, PresenceConversation& conversation);

  // How many watch streams (prompt frontends) are open now.
  int watchers() const { return watchers_.load(); }

  // Remote approval turned available, unavailable, offline or online: every watch stream is sent
  // the requests for paired devices again, with "remoteOffline" as it is now, and the frontends
  // update the requests they show.
  void remoteStatusChanged();

 private:
  JSON answer(const JSONReader& message, PresenceConversation& conversation);
  struct PINAnswer {
    std::optional<SecureBytes> pin;  // checked with the hardware
    std::string refusal;             // why there is none
    bool keepsWaiting = false;       // nothing was typed: the request may be answered again
  };
  // Asks for the PIN of `key` and checks it with the hardware; a wrong PIN is asked again while
  // the hardware allows tries, up to PresenceGate::kTries in all.
  PINAnswer askPIN(const KeyRecord& key, PresenceConversation& conversation);
  // Turns presence verification on or off.
  JSON presence(bool enabled, PresenceConversation& conversation);
  // "blocks" lists the denial limiter's blocks; "unblock" lifts those of a "program", a "key"
  // (fingerprint) or "all", after verifying the user's presence.
  JSON blocks(const std::string& name, const JSONReader& message,
              PresenceConversation& conversation);
  JSON verified(const std::string& reason, PresenceConversation& conversation, bool always,
                const std::function<JSON()>& action);
  void watch(int fd, std::stop_token shutdown);
  // A request as frontends get it: with "remoteOffline": true when it was meant for paired
  // devices and must be answered here (remote approval unavailable, or its relay offline).
  JSON requestJSON(const ApprovalRequest& request) const;
  JSON pendingList() const;

  Agent& agent_;
  LocalApprover& approver_;
  PresenceGate& presence_;
  Hooks hooks_;
  std::atomic<int> watchers_{0};
  // What each watch stream does when remote approval's status changes, by stream.
  Mutex refreshMutex_;
  std::map<int, std::function<void()>> refreshers_ GUARDED_BY(refreshMutex_);
  int nextRefresher_ GUARDED_BY(refreshMutex_) = 0;
  std::atomic<uint64_t> remoteStatusChanges_{0};
};

}  // namespace quorvane
