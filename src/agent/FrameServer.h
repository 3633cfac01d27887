#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stop_token>
#include <unordered_map>

#include "AgentEngine/ClientWatch.h"
#include "Base/Bytes.h"
#include "Base/Mutex.h"
#include "Platform/FileDescriptor.h"
#include "agent/RunnerPool.h"
#include "agent/UnixListener.h"

namespace quorvane {

// Serves a request-and-answer protocol of framed messages (the agent protocol) on a listener from
// one epoll set. An idle connection costs a descriptor and a few hundred bytes, never a thread: a
// small pool of threads waits for events, and a thread takes a connection only while a whole
// request is there to answer. The thread that accepts a client opens its session (the peer is
// captured at accept) and answers what the client has already sent without a hand-over. Requests
// of one connection are answered one at a time, in order; a request that waits (for the user)
// holds its thread and another takes its place in the loop, while the epoll set still watches its
// client for a hang-up. Every `socketCheckInterval` the socket file is checked and made again when
// someone deleted or replaced it.
class FrameServer {
 public:
  // One client's side of the protocol, made when the client connects.
  class Session {
   public:
    virtual ~Session() = default;
    // The framed answer to one request body. `watch` tells a request that waits when the client
    // hangs up or the server stops.
    virtual Bytes answer(ByteView body, ClientWatch& watch) = 0;
  };
  // Opens the session of a new connection, on the accepting thread; null closes the connection
  // without an answer (a peer that may not be served).
  using SessionFactory = std::function<std::unique_ptr<Session>(int fd)>;

  struct Options {
    // Connections held at once; past it new clients are closed at once. 0: what the open-file
    // limit allows, less a reserve for the rest of the program.
    size_t maxConnections = 0;
    // Threads waiting for events; 0: four per processor.
    size_t runners = 0;
    std::chrono::milliseconds socketCheckInterval{10'000};
  };

  FrameServer(UnixListener& listener, SessionFactory factory, Options options);
  ~FrameServer();
  FrameServer(const FrameServer&) = delete;
  FrameServer& operator=(const FrameServer&) = delete;

  // Serves until `stop` is requested; then ends the waits of requests in flight (their watch
  // reports a shutdown) and returns once every thread has left. Throws DaemonError when the epoll
  // set cannot be made.
  void run(std::stop_token stop);

  size_t activeConnections() const EXCLUDES(connectionsMutex_);
  // Threads the server has started (for tests: a few, plus one per request that waited at once).
  size_t threadCount() const { return pool_.threadCount(); }

 private:
  struct Connection;
  class Watch;
  enum class Reading { progress, nothingYet, failed };

  // Event tags that are not connections.
  static constexpr uint64_t kWakeTag = 0;
  static constexpr uint64_t kListenerTag = 1;

  // One turn of a pool thread: waits for one event and handles it. False once the server stops.
  bool step();
  void acceptClient();
  // Lets the epoll set report the next client once (`operation`: add or modify).
  void armListener(int operation) REQUIRES(listenerMutex_);
  // Answers every whole request the client has sent and reads what else is there, until nothing
  // is left to read (the connection goes back to the epoll set) or the connection ends.
  void serve(const std::shared_ptr<Connection>& connection);
  void handleEvent(const std::shared_ptr<Connection>& connection, uint32_t events);
  // Reads what the client has sent, until a whole request or the end of input is there
  // (`progress`), nothing more is there for now, or reading failed.
  Reading readAvailable(Connection& connection);
  void close(Connection& connection) EXCLUDES(connectionsMutex_);
  std::shared_ptr<Connection> find(uint64_t id) const EXCLUDES(connectionsMutex_);
  void checkSocketFile();

  UnixListener& listener_;
  SessionFactory factory_;
  Options options_;
  FileDescriptor epoll_;
  FileDescriptor wake_;   // readable once the server stops: every thread's wait returns
  FileDescriptor spare_;  // given up for a moment to turn clients away when descriptors run out
  std::atomic<bool> stopping_{false};
  RunnerPool pool_;

  Mutex listenerMutex_;  // accepting, and replacing the socket file

  mutable Mutex connectionsMutex_;
  std::unordered_map<uint64_t, std::shared_ptr<Connection>> connections_
      GUARDED_BY(connectionsMutex_);
  uint64_t nextID_ GUARDED_BY(connectionsMutex_) = kListenerTag + 1;
};

}  // namespace quorvane
