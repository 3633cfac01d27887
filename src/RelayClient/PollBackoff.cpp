#include "RelayClient/PollBackoff.h"

#include <algorithm>

namespace quorvane {

double PollBackoff::delayAfterFailure() {
  const double now = delay_;
  delay_ = std::min(delay_ * 2, kLongestDelay);
  return now;
}

}  // namespace quorvane
