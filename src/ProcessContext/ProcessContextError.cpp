#include "ProcessContext/ProcessContextError.h"

#include <string>

namespace quorvane {

ProcessContextError ProcessContextError::foreignUser(uid_t uid) {
  return {Kind::foreignUser, {uid}, "peer runs as another user (uid " + std::to_string(uid) + ")"};
}

ProcessContextError ProcessContextError::peerGone() {
  return {Kind::peerGone, {}, "peer process is gone"};
}

}  // namespace quorvane
