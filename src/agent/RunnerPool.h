#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

#include "Base/Mutex.h"

namespace quorvane {

// Threads that each run one step (a turn of an event loop) again and again, keeping `runners` of
// them running however many are held up elsewhere. A thread about to wait for long (a request
// waiting for the user's answer) calls `beginBlocking`, and a parked or new thread takes its place
// in the loop, up to `maxThreads` in all; after `endBlocking` the surplus parks at its next turn.
// So a few threads serve every client, and waiting requests never starve the others.
class RunnerPool {
 public:
  // `step` runs one turn and returns false when its thread should stop (the server is stopping).
  RunnerPool(size_t runners, size_t maxThreads, std::function<bool()> step);
  ~RunnerPool();
  RunnerPool(const RunnerPool&) = delete;
  RunnerPool& operator=(const RunnerPool&) = delete;

  void start() EXCLUDES(mutex_);
  // Called on a pool thread before and after a long wait.
  void beginBlocking() EXCLUDES(mutex_);
  void endBlocking() EXCLUDES(mutex_);
  // Parked threads leave; the others leave when their step returns false. Returns once every
  // thread has left.
  void stopAndJoin() EXCLUDES(mutex_);

  size_t threadCount() const EXCLUDES(mutex_);

 private:
  void run() EXCLUDES(mutex_);
  // Puts a parked or a new thread into the loop while fewer than `runners_` run.
  void replenish() REQUIRES(mutex_);

  const size_t runners_;
  const size_t maxThreads_;
  const std::function<bool()> step_;

  mutable Mutex mutex_;
  std::condition_variable_any unparked_;
  size_t running_ GUARDED_BY(mutex_) = 0;  // threads in the loop, neither blocked nor parked
  size_t parked_ GUARDED_BY(mutex_) = 0;
  size_t wakeups_ GUARDED_BY(mutex_) = 0;  // parked threads told to run again, not yet running
  bool stopping_ GUARDED_BY(mutex_) = false;
  std::vector<std::thread> threads_ GUARDED_BY(mutex_);
};

}  // namespace quorvane
