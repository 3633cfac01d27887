#include "ProcessContext/ProcessContextError.h"

#include <string>

namespace quorvane {

namespace {

std::string describe(ProcessContextError::Kind kind, uid_t uid) {
  switch (kind) {
    case ProcessContextError::Kind::foreignUser:
      return "peer runs as another user (uid " + std::to_string(uid) + ")";
    case ProcessContextError::Kind::peerGone: return "peer process is gone";
  }
  return "process context error";
}

}  // namespace

ProcessContextError::ProcessContextError(Kind kind, uid_t uid)
    : std::runtime_error(describe(kind, uid)), kind_(kind), uid_(uid) {}

ProcessContextError ProcessContextError::foreignUser(uid_t uid) {
  return ProcessContextError(Kind::foreignUser, uid);
}

ProcessContextError ProcessContextError::peerGone() {
  return ProcessContextError(Kind::peerGone, 0);
}

}  // namespace quorvane
