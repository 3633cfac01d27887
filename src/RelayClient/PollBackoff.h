#pragma once

namespace quorvane {

// How long a poller waits after a failed fetch: 1 s after the first failure, then twice as long
// after each further one, never more than 30 s (1, 2, 4, 8, 16, 30, 30, ...); a successful fetch
// starts the sequence again at 1 s.
class PollBackoff {
 public:
  static constexpr double kFirstDelay = 1;
  static constexpr double kLongestDelay = 30;

  // The delay to wait now, after a failure; the next one doubles it.
  double delayAfterFailure();
  void succeeded() { delay_ = kFirstDelay; }

 private:
  double delay_ = kFirstDelay;
};

}  // namespace quorvane
