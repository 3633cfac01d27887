#pragma once

#include <sys/types.h>

#include <functional>

namespace quorvane::testing {

// Runs `body` in a forked child process, which exits with body's result (126 if it throws).
// The child must not return into the test framework, so it leaves with _exit.
pid_t forkChild(const std::function<int()>& body);

// Waits for a child: its exit code, or minus the signal that ended it.
int waitChild(pid_t child);

// A gate that forked children wait at until the parent opens it, so that they start their work
// at the same moment. Create it before forking; every child calls wait(), the parent open().
class StartGate {
 public:
  StartGate();
  ~StartGate();
  StartGate(const StartGate&) = delete;
  StartGate& operator=(const StartGate&) = delete;

  void wait();  // in a child: returns once the gate is open
  void open();  // in the parent

 private:
  int readEnd_ = -1;
  int writeEnd_ = -1;
};

}  // namespace quorvane::testing
