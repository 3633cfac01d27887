#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/PresenceVerifier.h"

namespace quorvane {

// Presence verification through PAM: authenticates the agent's own user with the PAM service
// "quorvane" (pam_authenticate, then pam_acct_mgmt), relaying every message of the conversation
// (password prompts, "place your finger…" from pam_fprintd) to the given conversation.
//
// The service file is read from `configDirectory` when one is given (tests point it at a private
// configuration; nothing else should), else from the system's /etc/pam.d or /usr/lib/pam.d. A
// missing service file makes the verifier unavailable rather than letting PAM fall back to its
// "other" service. Verifications run one at a time: PAM modules are not all safe to run in
// parallel threads, and one prompt at a time is what a person can answer.
class PAMPresenceVerifier final : public PresenceVerifier {
 public:
  static constexpr std::string_view kService = "quorvane";

  explicit PAMPresenceVerifier(std::string user, std::filesystem::path configDirectory = {});

  PresenceResult verify(PresenceConversation& conversation) override;
  std::optional<std::string> unavailableReason() const override;
  // With the system's configuration (no private folder), whose common-auth checks passwords.
  bool accountCanNeverPass() const override;

  // The name of the account this process runs as; nothing when it has none.
  static std::optional<std::string> currentUserName();

 private:
  const std::string user_;
  const std::filesystem::path configDirectory_;
  std::mutex mutex_;  // held for a whole verification
};

}  // namespace quorvane
