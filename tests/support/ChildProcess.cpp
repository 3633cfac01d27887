#include "support/ChildProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

namespace quorvane::testing {

pid_t forkChild(const std::function<int()>& body) {
  pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    int code = 126;
    try {
      code = body();
    } catch (...) {
    }
    _exit(code);
  }
  return child;
}

int waitChild(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) return -1000;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return -WTERMSIG(status);
  return -1000;
}

std::optional<int> RunningChild::waitFor(std::chrono::milliseconds timeout) {
  if (exitCode_ || pid_ <= 0) return exitCode_;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
      return exitCode_;
    }
    if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

int RunningChild::stop(int signal, std::chrono::milliseconds patience) {
  if (pid_ <= 0) return -SIGKILL;
  if (exitCode_) return *exitCode_;
  kill(pid_, signal);
  if (auto code = waitFor(patience)) return *code;
  kill(pid_, SIGKILL);
  return waitFor(std::chrono::seconds(5)).value_or(-SIGKILL);
}

StartGate::StartGate() {
  int fds[2];
  if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
  readEnd_ = fds[0];
  writeEnd_ = fds[1];
}

StartGate::~StartGate() {
  if (readEnd_ >= 0) close(readEnd_);
  if (writeEnd_ >= 0) close(writeEnd_);
}

void StartGate::wait() {
  // The write end must be closed here too, or the read below would never see the end.
  close(writeEnd_);
  writeEnd_ = -1;
  char byte;
  while (read(readEnd_, &byte, 1) < 0 && errno == EINTR) {
  }
}

void StartGate::open() {
  close(writeEnd_);
  writeEnd_ = -1;
}

}  // namespace quorvane::testing
