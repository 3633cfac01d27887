#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class ControlErrorKind {
  agentHungUp,  // the agent closed the connection before it answered
  notJSON,      // a line from the agent is not a JSON object
};

// The error of a control-socket client: the agent went away, or answered something that is not a
// message of the control protocol.
class ControlError : public KindedError<ControlError, ControlErrorKind> {
 public:
  static constexpr EnumNames<Kind, 2> kKindNames{
      "ControlError", {{{Kind::agentHungUp, "agentHungUp"}, {Kind::notJSON, "notJSON"}}}};

  static ControlError agentHungUp() {
    return ControlError(Kind::agentHungUp, "the agent closed the control connection");
  }
  static ControlError notJSON() {
    return ControlError(Kind::notJSON, "the agent sent something that is not JSON");
  }

 private:
  ControlError(Kind kind, const std::string& message) : KindedError(kind, {}, message) {}
};

}  // namespace quorvane
