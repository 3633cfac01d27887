#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>

namespace quorvane::testing {

// Runs `body` in a forked child process, which exits with body's result (126 if it throws).
// The child must not return into the test framework, so it leaves with _exit.
pid_t forkChild(const std::function<int()>& body);

// Waits for a child: its exit code, or minus the signal that ended it.
int waitChild(pid_t child);

// A child that runs on its own, such as a server that a test started: its exit is awaited (and
// remembered) here, and it is stopped by its pid. The owner decides whether to stop it at its end.
class RunningChild {
 public:
  RunningChild() = default;
  explicit RunningChild(pid_t pid) : pid_(pid) {}

  pid_t pid() const { return pid_; }
  // Waits at most `timeout` for the exit: the exit code, or minus the signal that ended it;
  // nothing while the child runs (or when there is none).
  std::optional<int> waitFor(std::chrono::milliseconds timeout);
  // Sends `signal`, waits at most `patience`, then kills the child: its exit code, or minus the
  // signal that ended it.
  int stop(int signal, std::chrono::milliseconds patience);

 private:
  pid_t pid_ = -1;
  std::optional<int> exitCode_;
};

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
