#pragma once

namespace quorvane {

// Stops the process with a message naming the broken assumption. For programmer errors only
// (a caller broke a documented requirement); never for checking outside input.
[[noreturn]] void checkFailed(const char* condition, const char* why, const char* file, int line);

}  // namespace quorvane

#define QUORVANE_CHECK(condition, why) \
  ((condition) ? (void)0 : ::quorvane::checkFailed(#condition, why, __FILE__, __LINE__))
