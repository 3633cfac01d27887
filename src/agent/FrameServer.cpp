#include "agent/FrameServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <thread>

#include "SSHWire/FrameAssembler.h"
#include "agent/DaemonError.h"

namespace quorvane {
namespace {

// How much is read from a client at a time.
constexpr size_t kReadChunk = 16 * 1024;
// How long an answer may wait for a client that does not read it.
constexpr int kWriteTimeoutMilliseconds = 5000;
// Descriptors left for the rest of the program (control socket, key and log files) when the
// connection bound follows the open-file limit.
constexpr rlim_t kReservedDescriptors = 128;
// Threads that may wait for the user at once, beyond the runners.
constexpr size_t kMaxWaitingThreads = 256;

size_t defaultMaxConnections() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return 65536;
  return static_cast<size_t>(limit.rlim_cur > 2 * kReservedDescriptors
                                 ? limit.rlim_cur - kReservedDescriptors
                                 : limit.rlim_cur / 2);
}

// Threads waiting for events: as asked, or four per processor. A request holds its thread while
// its log entry waits for the commit that another request leads, so more threads than processors
// let more entries share one commit (eight clients on two cores: a third more signatures).
size_t runnersFor(const FrameServer::Options& options) {
  if (options.runners > 0) return options.runners;
  return std::max<size_t>(4, 4 * std::thread::hardware_concurrency());
}

// Writes a whole answer to a non-blocking socket; false when the client is gone or does not read.
bool writeAnswer(int fd, ByteView bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      bytes = bytes.subspan(static_cast<size_t>(sent));
    } else if (sent < 0 && errno == EAGAIN) {
      pollfd entry{fd, POLLOUT, 0};
      if (::poll(&entry, 1, kWriteTimeoutMilliseconds) <= 0) return false;
    } else if (sent < 0 && errno != EINTR) {
      return false;
    }
  }
  return true;
}

void epollControl(int epoll, int operation, int fd, uint32_t events, uint64_t tag) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = tag;
  ::epoll_ctl(epoll, operation, fd, &event);
}

}  // namespace

// Reports a hang-up to a request that waits, and tells the pool that its thread is held up.
class FrameServer::Watch final : public ClientWatch {
 public:
  Watch(FrameServer& server, Connection& connection) : server_(server), connection_(connection) {}

  std::stop_token token() override;
  bool clientGone() const override { return gone_; }

  // After each request, on the connection's thread.
  void requestEnded() {
    if (!waiting_) return;
    waiting_ = false;
    server_.pool_.endBlocking();
  }
  void hangUp() {
    gone_ = true;
    source_.request_stop();
  }
  void shutDown() { source_.request_stop(); }

 private:
  FrameServer& server_;
  Connection& connection_;
  std::stop_source source_;
  std::atomic<bool> gone_{false};
  bool waiting_ = false;  // the current request asked for the token (only its thread reads this)
};

// One client. A thread owns it while `busy` (opening it, answering its requests); otherwise the
// epoll set watches it and the thread that gets its next event takes it.
struct FrameServer::Connection {
  Connection(FrameServer& server, uint64_t eventTag, FileDescriptor socket)
      : tag(eventTag), fd(std::move(socket)), watch(server, *this) {}

  const uint64_t tag;
  std::unique_ptr<Session> session;
  FrameAssembler input;     // the owner's
  bool endOfInput = false;  // the owner's
  Mutex mutex;
  FileDescriptor fd GUARDED_BY(mutex);  // read and written by the owner; closed under the mutex
  bool busy GUARDED_BY(mutex) = true;
  bool closed GUARDED_BY(mutex) = false;
  bool registered GUARDED_BY(mutex) = false;  // in the epoll set
  Watch watch;

  // The descriptor, for the owner (who alone closes it).
  int socket() NO_THREAD_SAFETY_ANALYSIS { return fd.get(); }

  // Lets the epoll set report `events` of this connection once.
  void arm(int epoll, uint32_t events) REQUIRES(mutex) {
    if (closed) return;
    epollControl(epoll, registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd.get(), events | EPOLLONESHOT,
                 tag);
    registered = true;
  }
};

std::stop_token FrameServer::Watch::token() {
  if (!waiting_) {
    waiting_ = true;
    // While the request waits, only a hang-up wakes the epoll set for this client: bytes it
    // sends ahead stay unread until the answer is written.
    {
      MutexLock lock(connection_.mutex);
      connection_.arm(server_.epoll_.get(), EPOLLRDHUP);
    }
    server_.pool_.beginBlocking();
  }
  return source_.get_token();
}

FrameServer::FrameServer(UnixListener& listener, SessionFactory factory, Options options)
    : listener_(listener),
      factory_(std::move(factory)),
      options_(options),
      pool_(runnersFor(options), runnersFor(options) + kMaxWaitingThreads,
            [this] { return step(); }) {
  if (options_.maxConnections == 0) options_.maxConnections = defaultMaxConnections();
}

FrameServer::~FrameServer() { pool_.stopAndJoin(); }

size_t FrameServer::activeConnections() const {
  MutexLock lock(connectionsMutex_);
  return connections_.size();
}

std::shared_ptr<FrameServer::Connection> FrameServer::find(uint64_t tag) const {
  MutexLock lock(connectionsMutex_);
  auto found = connections_.find(tag);
  return found == connections_.end() ? nullptr : found->second;
}

void FrameServer::close(Connection& connection) {
  {
    MutexLock lock(connection.mutex);
    connection.closed = true;
    connection.fd.reset();  // leaves the epoll set with it
  }
  MutexLock lock(connectionsMutex_);
  connections_.erase(connection.tag);
}

bool FrameServer::step() {
  epoll_event event{};
  if (::epoll_wait(epoll_.get(), &event, 1, -1) != 1) return true;
  if (event.data.u64 == kWakeTag) return false;
  try {
    if (event.data.u64 == kListenerTag) {
      acceptClient();
    } else if (std::shared_ptr<Connection> connection = find(event.data.u64)) {
      handleEvent(connection, event.events);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvane-agent: connection ended: %s\n", error.what());
  }
  return true;
}

void FrameServer::acceptClient() {
  FileDescriptor socket;
  {
    MutexLock lock(listenerMutex_);
    socket =
        FileDescriptor(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket && (errno == EMFILE || errno == ENFILE)) {
      // Out of descriptors: the reserve lets one client in to be closed at once, so that the
      // backlog drains instead of waking every thread again and again.
      spare_.reset();
      const FileDescriptor turnedAway(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
      spare_ = FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    // The next client may be accepted by another thread while this one opens its session.
    armListener(EPOLL_CTL_MOD);
  }
  if (!socket || activeConnections() >= options_.maxConnections) return;
  std::unique_ptr<Session> session = factory_(socket.get());
  if (!session) return;

  std::shared_ptr<Connection> connection;
  {
    MutexLock lock(connectionsMutex_);
    connection = std::make_shared<Connection>(*this, nextID_++, std::move(socket));
    connections_.emplace(connection->tag, connection);
  }
  connection->session = std::move(session);
  if (stopping_) connection->watch.shutDown();
  serve(connection);
}

void FrameServer::armListener(int operation) {
  epollControl(epoll_.get(), operation, listener_.fd(), EPOLLIN | EPOLLONESHOT, kListenerTag);
}

void FrameServer::handleEvent(const std::shared_ptr<Connection>& connection, uint32_t events) {
  {
    MutexLock lock(connection->mutex);
    if (connection->closed) return;
    if (connection->busy) {
      // The hang-up watch of a request that waits.
      if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) connection->watch.hangUp();
      return;
    }
    // A hang-up watch from an earlier request, already replaced by the wait for input.
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) == 0) return;
    connection->busy = true;
  }
  serve(connection);
}

FrameServer::Reading FrameServer::readAvailable(Connection& connection) {
  uint8_t chunk[kReadChunk];
  for (;;) {
    const ssize_t got = ::recv(connection.socket(), chunk, sizeof chunk, 0);
    if (got > 0) {
      connection.input.append(ByteView(chunk, static_cast<size_t>(got)));
      if (connection.input.status() != FrameAssembler::Status::incomplete) return Reading::progress;
    } else if (got == 0) {
      connection.endOfInput = true;
      return Reading::progress;
    } else if (errno == EAGAIN) {
      return Reading::nothingYet;
    } else if (errno != EINTR) {
      return Reading::failed;
    }
  }
}

void FrameServer::serve(const std::shared_ptr<Connection>& owned) {
  Connection& connection = *owned;
  for (;;) {
    while (std::optional<Bytes> body = connection.input.next()) {
      Bytes answer;
      try {
        answer = connection.session->answer(*body, connection.watch);
      } catch (...) {
        connection.watch.requestEnded();
        close(connection);
        throw;
      }
      connection.watch.requestEnded();
      if (!writeAnswer(connection.socket(), answer)) return close(connection);
    }
    if (connection.input.status() == FrameAssembler::Status::invalid || connection.endOfInput ||
        stopping_)
      return close(connection);
    switch (readAvailable(connection)) {
      case Reading::progress: continue;
      case Reading::failed: return close(connection);
      case Reading::nothingYet: {
        // Back to the epoll set until the client sends more or hangs up.
        MutexLock lock(connection.mutex);
        connection.busy = false;
        connection.arm(epoll_.get(), EPOLLIN | EPOLLRDHUP);
        return;
      }
    }
  }
}

void FrameServer::checkSocketFile() {
  MutexLock lock(listenerMutex_);
  if (listener_.stillInPlace()) return;
  try {
    listener_.recreate();
    armListener(EPOLL_CTL_ADD);
    std::fprintf(stderr, "quorvane-agent: socket %s was missing; made it again\n",
                 listener_.path().c_str());
  } catch (const DaemonError& error) {
    std::fprintf(stderr, "quorvane-agent: %s\n", error.what());
  }
}

void FrameServer::run(std::stop_token stop) {
  epoll_ = FileDescriptor(::epoll_create1(EPOLL_CLOEXEC));
  wake_ = FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  spare_ = FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (!epoll_ || !wake_) throw DaemonError::fromErrno("epoll");
  // The wake-up stays readable (level-triggered), so that every thread sees it.
  epollControl(epoll_.get(), EPOLL_CTL_ADD, wake_.get(), EPOLLIN, kWakeTag);
  {
    MutexLock lock(listenerMutex_);
    armListener(EPOLL_CTL_ADD);
  }
  pool_.start();

  Mutex mutex;
  std::condition_variable_any stopped;
  {
    MutexLock lock(mutex);
    while (!stopped.wait_for(mutex, stop, options_.socketCheckInterval, [] { return false; }) &&
           !stop.stop_requested()) {
      lock.unlock();
      checkSocketFile();
      lock.lock();
    }
  }

  stopping_ = true;
  const uint64_t one = 1;
  [[maybe_unused]] auto ignored = ::write(wake_.get(), &one, sizeof one);
  {
    MutexLock lock(connectionsMutex_);
    for (auto& [tag, connection] : connections_) connection->watch.shutDown();
  }
  pool_.stopAndJoin();
}

}  // namespace quorvane
