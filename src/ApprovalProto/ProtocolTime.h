#pragma once

#include <cstdint>

#include "Base/Date.h"

namespace quorvane {

// The approval messages carry times as milliseconds since 1970-01-01 UTC.

// seconds × 1000, truncated; a date before 1970 (or not a number) is 0 and one too late for 64
// bits is the largest value.
uint64_t millisecondsSince1970(Date date);

// The date of a millisecond count (divided by 1000).
Date dateFromMilliseconds(uint64_t milliseconds);

}  // namespace quorvane
