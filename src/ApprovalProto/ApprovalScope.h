#pragma once

#include <cstdint>

namespace quorvane {

// What an approval covers: this one request, or the same use for five minutes. A byte of 2 or
// more is no scope.
enum class ApprovalScope : uint8_t { once = 0, fiveMinutes = 1 };

// The approver's answer. A byte of 3 or more is no decision.
enum class ApprovalDecision : uint8_t { approve = 0, deny = 1, denyAndBlock = 2 };

}  // namespace quorvane
