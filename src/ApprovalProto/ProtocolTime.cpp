#include "ApprovalProto/ProtocolTime.h"

#include <cmath>

namespace quorvane {

uint64_t millisecondsSince1970(Date date) {
  const double milliseconds = date.secondsSince1970 * 1000;
  if (!(milliseconds > 0)) return 0;  // negative or not a number
  // 2^64 is exactly representable; anything at or above it does not fit.
  if (milliseconds >= 18446744073709551616.0) return UINT64_MAX;
  return static_cast<uint64_t>(milliseconds);
}

Date dateFromMilliseconds(uint64_t milliseconds) {
  return Date{static_cast<double>(milliseconds) / 1000};
}

}  // namespace quorvane
