#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Policy/RequestPurpose.h"

namespace quorvane {

// Parts of an approval text at least this many characters (code points) long are shortened.
inline constexpr size_t kApprovalPartShorteningLength = 81;

// `text` unchanged when shorter than kApprovalPartShorteningLength characters; otherwise its first
// 79 characters followed by "…" (80 in all). Never cuts inside a UTF-8 sequence.
std::string shortenedApprovalPart(std::string_view text);

// What the signature will do, in words: "make an unknown signature", "sign a Git commit",
// "sign data (NAMESPACE)", or "sign in to HOST" ("an unverified host" without a host display),
// followed by " through a forwarded connection" for a forwarded login.
std::string approvalAction(const RequestPurpose& purpose,
                           const std::optional<std::string>& hostDisplay);

// The reason shown with an approval request: PROGRAM " for " ACTION " with key “" KEY "”", each
// of the three parts shortened as shortenedApprovalPart says.
std::string approvalReason(std::string_view programName, const RequestPurpose& purpose,
                           const std::optional<std::string>& hostDisplay, std::string_view keyName);

}  // namespace quorvane
