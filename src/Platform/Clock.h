#pragma once

#include <chrono>
#include <mutex>

#include "Base/Date.h"

namespace quorvane {

// The current date, behind an interface so that services that must read a clock (the agent's
// sign path, expiry of approval requests) can be driven by a test.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() = 0;
};

// The system's real-time clock.
class SystemClock final : public Clock {
 public:
  Date now() override {
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return Date{std::chrono::duration<double>(since).count()};
  }
};

// A clock that stands still until told to move; for tests.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(Date start) : now_(start) {}
  Date now() override {
    std::lock_guard lock(mutex_);
    return now_;
  }
  void advance(double seconds) {
    std::lock_guard lock(mutex_);
    now_ = now_ + seconds;
  }

 private:
  std::mutex mutex_;
  Date now_;  // guarded by mutex_
};

}  // namespace quorvane
