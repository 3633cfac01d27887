#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "AgentEngine/Approval.h"
#include "Platform/Clock.h"
#include "Platform/PresenceVerifier.h"

namespace quorvane {

// The agent's check that the user is at this machine before an approval, an unlock or a resume
// of remote approval takes effect. A control message never confirms anything by itself: only a
// verification does, unless the user turned verification off (a headless machine without a
// password or fingerprint), in which case the frontend's answer stands alone. Safe to use from
// many threads.
class PresenceGate {
 public:
  struct Outcome {
    PresenceResult result;
    // Set when confirmed: the context that an approval window reuses.
    std::shared_ptr<const AuthContext> context;
    bool confirmed() const { return context != nullptr; }
  };

  PresenceGate(std::shared_ptr<PresenceVerifier> verifier, Clock& clock, bool required);

  // Whether verifications run (the user's setting).
  bool required() const { return required_; }
  void setRequired(bool required) { required_ = required; }

  // How many times a refused proof (a mistyped password) is tried, as sudo does, before it counts.
  static constexpr int kTries = 3;
  // What the person is told before another try.
  static constexpr const char* kTryAgain = "Sorry, try again.";

  // Confirms the user's presence for `reason`, talking through `conversation`. With `always` a
  // verification runs even when the setting is off (to change the setting itself). A refused
  // proof is tried again, up to kTries in all, while `stillWanted` (when given) holds.
  Outcome confirm(const std::string& reason, PresenceConversation& conversation,
                  bool always = false, const std::function<bool()>& stillWanted = {});

  // Whether verifications run but can never succeed for this account.
  bool accountCanNeverPass() const { return verifier_->accountCanNeverPass(); }

  // Why verifications cannot run, when they are required and cannot; nothing otherwise.
  std::optional<std::string> problem() const;

 private:
  std::shared_ptr<PresenceVerifier> verifier_;
  Clock& clock_;
  std::atomic<bool> required_;
};

}  // namespace quorvane
