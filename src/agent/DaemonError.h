#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class DaemonErrorKind {
  socketPath,      // the socket path is unusable (too long, folder cannot be made or is unsafe)
  alreadyRunning,  // another agent answers on the socket
  system,          // a system call failed; the message names it and errno's text
};

// Why the agent program cannot start or serve: the message says what failed and why, for the
// user who started it.
class DaemonError : public KindedError<DaemonError, DaemonErrorKind> {
 public:
  static constexpr EnumNames<Kind, 3> kKindNames{"DaemonError",
                                                 {{{Kind::socketPath, "socketPath"},
                                                   {Kind::alreadyRunning, "alreadyRunning"},
                                                   {Kind::system, "system"}}}};

  DaemonError(Kind kind, const std::string& message) : KindedError(kind, {}, message) {}
  // A `system` error for `operation` from the current errno.
  static DaemonError fromErrno(const std::string& operation);
};

}  // namespace quorvane
