#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <thread>

#include "Base/Mutex.h"

namespace quorvane {

// One thread that runs tasks one at a time, in the order they were given. A TPM executes one
// command at a time and its ESYS context may be used by one thread only, so every TPM command of
// the process runs here; callers on other threads wait for their own task alone.
class TPMWorker {
 public:
  TPMWorker();
  // Runs the tasks already given, then joins the thread.
  ~TPMWorker();
  TPMWorker(const TPMWorker&) = delete;
  TPMWorker& operator=(const TPMWorker&) = delete;

  // Runs `task` on the worker thread and waits for it; rethrows what it threw. REQUIRES: not
  // called from a task (that would wait for itself forever; it is checked).
  void run(const std::function<void()>& task);

 private:
  struct Job {
    const std::function<void()>* task;
    std::exception_ptr error;
    bool done = false;
  };
  void loop();

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<Job*> jobs_ GUARDED_BY(mutex_);
  bool stopping_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace quorvane
