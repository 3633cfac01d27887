#pragma once

#include <stdexcept>
#include <string>

namespace quorvane {

// The error of a control-socket client: the agent went away, or answered something that is not a
// message of the control protocol.
class ControlError : public std::runtime_error {
 public:
  enum class Kind {
    agentHungUp,  // the agent closed the connection before it answered
    notJSON,      // a line from the agent is not a JSON object
  };

  static ControlError agentHungUp() {
    return ControlError(Kind::agentHungUp, "the agent closed the control connection");
  }
  static ControlError notJSON() {
    return ControlError(Kind::notJSON, "the agent sent something that is not JSON");
  }

  Kind kind() const { return kind_; }

 private:
  ControlError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
  Kind kind_;
};

}  // namespace quorvane
