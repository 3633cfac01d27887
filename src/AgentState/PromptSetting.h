#pragma once

#include <string_view>

#include "AgentState/SupportState.h"

namespace quorvane {

// Whether the agent starts the desktop approval dialog by itself when a request waits and no
// frontend is connected. Stored in the sealed file "prompt.json" (purpose "prompt") as
// {"automatic": Bool}. A file that is missing, tampered with or unreadable means on: the dialog
// only decides who sees a request first, never whether it is approved.
inline constexpr std::string_view kPromptSettingPurpose = "prompt";
inline constexpr std::string_view kPromptSettingFile = "prompt.json";

bool promptStartsAutomatically(const SupportState& support);
// Throws what SealedFile::write throws.
void savePromptStartsAutomatically(const SupportState& support, bool automatic);

}  // namespace quorvane
