#pragma once

#include <atomic>

#include "AgentState/LockStore.h"

namespace quorvane {

// The locked flag kept in memory only, for tests of the layers above.
class InMemoryLockStore final : public LockStore {
 public:
  bool isLocked() override { return locked_; }
  void setLocked(bool locked) override { locked_ = locked; }

 private:
  std::atomic<bool> locked_{false};
};

}  // namespace quorvane
