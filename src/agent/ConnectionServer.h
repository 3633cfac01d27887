#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <set>
#include <stop_token>
#include <thread>
#include <vector>

#include "Base/Mutex.h"
#include "Platform/FileDescriptor.h"
#include "agent/UnixListener.h"

namespace quorvane {

// Accepts connections on a listener and serves them on a pool of threads, at most
// `maxConnections` at once: past the bound, new clients wait in the listen backlog. Every
// `socketCheckInterval` the socket file is checked and made again when someone deleted or
// replaced it.
//
// The pool works as leader and followers: one thread (the leader) waits for the next client,
// hands leadership to an idle thread and serves the client itself. A request is served by the
// thread that accepted it, with no hand-over between threads and no thread started per client;
// the pool grows only when every thread is busy (a request waiting for approval keeps its thread),
// up to the connection bound.
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
  void run(std::stop_token stop) EXCLUDES(mutex_);

  size_t activeConnections() const;
  // Threads in the pool (for tests: it stays well below one per client served).
  size_t poolSize() const;

 private:
  // One pool thread: leads when it may, serves what it accepted, and so on until the stop.
  void work(std::stop_token stop) EXCLUDES(mutex_);
  // As leader: waits for a client and accepts it; -1 once the server stops.
  int acceptNext(std::stop_token stop);
  void checkSocketFile();

  UnixListener& listener_;
  Handler handler_;
  Options options_;
  FileDescriptor wake_;  // readable once the server stops, so the leader's poll returns
  // Touched by the leader, or under mutex_ while nobody leads (a rule the analysis cannot
  // express, so it is not annotated).
  std::chrono::steady_clock::time_point lastSocketCheck_;

  mutable Mutex mutex_;
  std::condition_variable_any leadershipFree_;
  std::set<int> open_ GUARDED_BY(mutex_);    // descriptors of connections being served
  bool leading_ GUARDED_BY(mutex_) = false;  // a thread waits for the next client
  size_t idle_ GUARDED_BY(mutex_) = 0;       // threads waiting to lead
  std::vector<std::thread> pool_ GUARDED_BY(mutex_);
};

}  // namespace quorvane
