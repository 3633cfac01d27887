#pragma once

#include <atomic>

namespace quorvane {

// Persists whether the agent is locked, so that a restarted agent and the application see it.
class LockStore {
 public:
  virtual ~LockStore() = default;
  virtual bool isLocked() = 0;
  virtual void setLocked(bool locked) = 0;
};

class InMemoryLockStore final : public LockStore {
 public:
  bool isLocked() override { return locked_; }
  void setLocked(bool locked) override { locked_ = locked; }

 private:
  std::atomic<bool> locked_{false};
};

}  // namespace quorvane
