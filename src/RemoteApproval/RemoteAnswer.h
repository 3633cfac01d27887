#pragma once

#include <string>

#include "AgentEngine/Approval.h"
#include "ApprovalProto/ApprovalResponseMessage.h"

namespace quorvane {

// How long an approval "for five minutes" given on a paired device lasts.
inline constexpr double kRemoteWindowSeconds = 300;

// The agent's result for an accepted answer of the device named `deviceName`: approve is
// approved (once, or a window of kRemoteWindowSeconds), without a local confirmation, saying
// whether the device showed the key's fingerprint; deny and denyAndBlock are denied without and
// with a block. `by` is the device's name.
ApprovalResult approvalResultOf(const ApprovalResponseMessage& response,
                                const std::string& deviceName);

}  // namespace quorvane
