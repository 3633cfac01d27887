#pragma once

namespace quorvane {

// Persists whether the agent is locked, so that a restarted agent and the application see it.
class LockStore {
 public:
  virtual ~LockStore() = default;
  virtual bool isLocked() = 0;
  virtual void setLocked(bool locked) = 0;
};

}  // namespace quorvane
