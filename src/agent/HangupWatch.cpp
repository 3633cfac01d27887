#include "agent/HangupWatch.h"

#include <poll.h>

namespace quorvane {
namespace {

// How often the watcher looks at its own stop token between polls.
constexpr int kPollMilliseconds = 100;

}  // namespace

HangupWatch::HangupWatch(int fd, std::stop_token shutdown)
    : fd_(fd), shutdownLink_(shutdown, std::function<void()>([this] { source_.request_stop(); })) {}

HangupWatch::~HangupWatch() {
  if (watcher_.joinable()) {
    watcher_.request_stop();
    watcher_.join();
  }
}

std::stop_token HangupWatch::token() {
  if (!watcher_.joinable()) {
    watcher_ = std::jthread([this](std::stop_token own) {
      // POLLRDHUP reports the peer's close without reporting readable data, so bytes that a
      // client sends ahead are left for the connection to read.
      pollfd entry{fd_, POLLRDHUP, 0};
      while (!own.stop_requested() && !source_.stop_requested()) {
        entry.revents = 0;
        if (::poll(&entry, 1, kPollMilliseconds) > 0 &&
            (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
          gone_ = true;
          source_.request_stop();
        }
      }
    });
  }
  return source_.get_token();
}

}  // namespace quorvane
