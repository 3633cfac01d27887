#include "AgentEngine/PresenceGate.h"

namespace quorvane {

PresenceGate::PresenceGate(std::shared_ptr<PresenceVerifier> verifier, Clock& clock, bool required)
    : verifier_(std::move(verifier)), clock_(clock), required_(required) {}

PresenceGate::Outcome PresenceGate::confirm(const std::string& reason,
                                            PresenceConversation& conversation, bool always,
                                            const std::function<bool()>& stillWanted) {
  if (!always && !required_) {
    return {{PresenceResult::Status::verified, "verification is turned off"},
            std::make_shared<AuthContext>(AuthContext{reason, clock_.now(), false})};
  }
  PresenceResult result = verifier_->verify(conversation);
  for (int tries = 1; result.status == PresenceResult::Status::failed && tries < kTries &&
                      (!stillWanted || stillWanted());
       ++tries) {
    conversation.exchange({PresencePrompt::Style::error, kTryAgain});
    result = verifier_->verify(conversation);
  }
  if (!result.verified()) return {std::move(result), nullptr};
  return {std::move(result),
          std::make_shared<AuthContext>(AuthContext{reason, clock_.now(), true})};
}

std::optional<std::string> PresenceGate::problem() const {
  if (!required_) return std::nullopt;
  return verifier_->unavailableReason();
}

}  // namespace quorvane
