#pragma once

#include <string_view>

#include "AgentState/SupportState.h"

namespace quorvane {

// Whether approvals, unlock and the resume of remote approval need a verification of the user's
// presence (PAM). Stored in the sealed file "presence.json" (purpose "presence") as
// {"verification": Bool}. Only the agent changes it, after a verification. A file that is
// missing, tampered with or unreadable means on: verification is turned off only explicitly.
inline constexpr std::string_view kPresenceSettingPurpose = "presence";
// The setting's sealed file in the support folder.
inline constexpr std::string_view kPresenceSettingFile = "presence.json";

bool presenceVerificationEnabled(const SupportState& support);
// Throws what SealedFile::write throws.
void savePresenceVerification(const SupportState& support, bool enabled);

}  // namespace quorvane
