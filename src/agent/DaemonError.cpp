#include "agent/DaemonError.h"

#include <cerrno>
#include <cstring>

namespace quorvane {

DaemonError DaemonError::fromErrno(const std::string& operation) {
  return DaemonError(Kind::system, operation + ": " + std::strerror(errno));
}

}  // namespace quorvane
