#pragma once

#include <cstdint>

namespace quorvane {

namespace qap {
// What an approval given on a paired device covers: this one request, or the same use for five
// minutes. A byte of 2 or more is no scope. (In its own namespace: the agent's approvals have an
// ApprovalScope of their own, with any window length.)
enum class ApprovalScope : uint8_t { once = 0, fiveMinutes = 1 };
}  // namespace qap

// The approver's answer. A byte of 3 or more is no decision.
enum class ApprovalDecision : uint8_t { approve = 0, deny = 1, denyAndBlock = 2 };

}  // namespace quorvane
