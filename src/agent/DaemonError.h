#pragma once

#include <stdexcept>
#include <string>

namespace quorvane {

// Why the agent program cannot start or serve: the message says what failed and why, for the
// user who started it.
class DaemonError : public std::runtime_error {
 public:
  enum class Kind {
    socketPath,      // the socket path is unusable (too long, folder cannot be made or is unsafe)
    alreadyRunning,  // another agent answers on the socket
    system,          // a system call failed; the message names it and errno's text
  };

  DaemonError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
  // A `system` error for `operation` from the current errno.
  static DaemonError fromErrno(const std::string& operation);

  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace quorvane
