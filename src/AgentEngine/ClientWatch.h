#pragma once

#include <stop_token>

namespace quorvane {

// How a request that waits learns that it should stop waiting: the client hung up, or the agent
// is shutting down. Watching may cost something (a thread, a poll), so it starts only when a
// request first asks for the token.
class ClientWatch {
 public:
  virtual ~ClientWatch() = default;
  // Stopped when the client hangs up or the agent shuts down.
  virtual std::stop_token token() = 0;
  // Whether the client has hung up (as opposed to a shutdown).
  virtual bool clientGone() const = 0;
};

// A watch whose token only stops when asked, for callers without a socket (tests, previews).
class ManualClientWatch final : public ClientWatch {
 public:
  std::stop_token token() override { return source_.get_token(); }
  bool clientGone() const override { return gone_; }
  void hangUp() {
    gone_ = true;
    source_.request_stop();
  }
  void shutDown() { source_.request_stop(); }

 private:
  std::stop_source source_;
  bool gone_ = false;
};

}  // namespace quorvane
