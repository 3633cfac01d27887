#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <stop_token>
#include <thread>

#include "AgentEngine/ClientWatch.h"

namespace quorvane {

// Watches a connected socket for the peer hanging up, from a thread started on the first call to
// `token()`, and follows `shutdown` (the server stopping). Requests in flight see either as a
// stopped token; `clientGone` tells them apart.
class HangupWatch final : public ClientWatch {
 public:
  HangupWatch(int fd, std::stop_token shutdown);
  ~HangupWatch() override;
  HangupWatch(const HangupWatch&) = delete;
  HangupWatch& operator=(const HangupWatch&) = delete;

  std::stop_token token() override;
  bool clientGone() const override { return gone_.load(); }

 private:
  int fd_;
  std::stop_source source_;
  std::stop_callback<std::function<void()>> shutdownLink_;
  std::atomic<bool> gone_{false};
  std::jthread watcher_;
};

}  // namespace quorvane
