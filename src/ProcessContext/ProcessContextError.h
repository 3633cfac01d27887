#pragma once

#include <sys/types.h>

#include <ostream>
#include <stdexcept>

namespace quorvane {

// The one error of the process context. Each kind carries only its own payload:
//   foreignUser(uid)  the peer runs as another user; that user's identifier
//   peerGone          the peer's identity cannot be read, normally because it has exited (or its
//                     pid now names another process); also a process record that does not parse
class ProcessContextError : public std::runtime_error {
 public:
  enum class Kind { foreignUser, peerGone };

  static ProcessContextError foreignUser(uid_t uid);
  static ProcessContextError peerGone();

  Kind kind() const { return kind_; }
  // The peer's user identifier for foreignUser; 0 for peerGone.
  uid_t uid() const { return uid_; }

  friend bool operator==(const ProcessContextError& a, const ProcessContextError& b) {
    return a.kind_ == b.kind_ && a.uid_ == b.uid_;
  }
  friend std::ostream& operator<<(std::ostream& out, const ProcessContextError& error) {
    return out << error.what();
  }

 private:
  ProcessContextError(Kind kind, uid_t uid);
  Kind kind_;
  uid_t uid_;
};

}  // namespace quorvane
