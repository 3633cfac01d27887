#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <stop_token>

#include "agent/UnixListener.h"

namespace quorvane {

// Accepts connections on a listener and serves each on its own thread, at most `maxConnections`
// at once: past the bound, new clients wait in the listen backlog. Every `socketCheckInterval`
// the socket file is checked and made again when someone deleted or replaced it.
class ConnectionServer {
 public:
  // Serves one connection until it ends; `shutdown` stops when the server stops. The server
  // closes the descriptor after the handler returns.
  using Handler = std::function<void(int fd, std::stop_token shutdown)>;

  struct Options {
    size_t maxConnections = 64;
    std::chrono::milliseconds socketCheckInterval{10'000};
  };

  ConnectionServer(UnixListener& listener, Handler handler, Options options);

  // Accepts until `stop` is requested; then shuts the reading side of every open connection
  // (handlers waiting on a client see end of input, their shutdown token is stopped) and returns
  // when every handler has returned.
  void run(std::stop_token stop);

  size_t activeConnections() const;

 private:
  // What connection threads share with the server. Threads hold it by shared pointer, so it
  // outlives the server for as long as the last thread still unlocks its mutex.
  struct Shared {
    Handler handler;
    std::mutex mutex;
    std::condition_variable_any changed;
    std::set<int> open;  // guarded by mutex: descriptors of connections being served
  };
  static void serve(const std::shared_ptr<Shared>& shared, int fd, std::stop_token stop);

  UnixListener& listener_;
  Options options_;
  std::shared_ptr<Shared> shared_;
};

}  // namespace quorvane
