#pragma once

#include <sys/types.h>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class ProcessContextErrorKind { foreignUser, peerGone };

// The peer's user identifier for foreignUser; 0 for peerGone.
struct ProcessContextErrorPayload {
  uid_t uid = 0;
  friend bool operator==(const ProcessContextErrorPayload&,
                         const ProcessContextErrorPayload&) = default;
};

// The one error of the process context. Each kind carries only its own payload:
//   foreignUser(uid)  the peer runs as another user; that user's identifier
//   peerGone          the peer's identity cannot be read, normally because it has exited (or its
//                     pid now names another process); also a process record that does not parse
class ProcessContextError
    : public KindedError<ProcessContextError, ProcessContextErrorKind, ProcessContextErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 2> kKindNames{
      "ProcessContextError", {{{Kind::foreignUser, "foreignUser"}, {Kind::peerGone, "peerGone"}}}};

  static ProcessContextError foreignUser(uid_t uid);
  static ProcessContextError peerGone();

  uid_t uid() const { return payload().uid; }

 private:
  using KindedError::KindedError;
};

}  // namespace quorvane
