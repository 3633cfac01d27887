#include "agent/ConnectionServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>

#include "agent/DaemonError.h"

namespace quorvane {

ConnectionServer::ConnectionServer(UnixListener& listener, Handler handler, Options options)
    : listener_(listener), handler_(std::move(handler)), options_(options) {}

size_t ConnectionServer::activeConnections() const {
  MutexLock lock(mutex_);
  return open_.size();
}

size_t ConnectionServer::poolSize() const {
  MutexLock lock(mutex_);
  return pool_.size();
}

void ConnectionServer::checkSocketFile() {
  lastSocketCheck_ = std::chrono::steady_clock::now();
  if (listener_.stillInPlace()) return;
  try {
    listener_.recreate();
    std::fprintf(stderr, "quorvane-agent: socket %s was missing; made it again\n",
                 listener_.path().c_str());
  } catch (const DaemonError& error) {
    std::fprintf(stderr, "quorvane-agent: %s\n", error.what());
  }
}

int ConnectionServer::acceptNext(std::stop_token stop) {
  while (!stop.stop_requested()) {
    auto sinceCheck = std::chrono::steady_clock::now() - lastSocketCheck_;
    if (sinceCheck >= options_.socketCheckInterval) {
      checkSocketFile();
      sinceCheck = {};
    }
    auto untilCheck = std::chrono::duration_cast<std::chrono::milliseconds>(
        options_.socketCheckInterval - sinceCheck);
    pollfd entries[2] = {{listener_.fd(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    int timeout = static_cast<int>(std::max<int64_t>(untilCheck.count(), 0) + 1);
    if (::poll(entries, 2, timeout) <= 0 || (entries[0].revents & POLLIN) == 0) continue;
    int fd = ::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) return fd;
  }
  return -1;
}

void ConnectionServer::work(std::stop_token stop) {
  // The lock is held from the end of one connection to the wait for the next, so that a thread
  // counts as idle as soon as its client is gone: the leader then never starts a thread while
  // this one is about to be free.
  MutexLock lock(mutex_);
  for (;;) {
    ++idle_;
    bool mayLead = leadershipFree_.wait(mutex_, stop, [&]() REQUIRES(mutex_) {
      return !leading_ && open_.size() < options_.maxConnections;
    });
    --idle_;
    if (!mayLead) return;
    leading_ = true;
    lock.unlock();
    int fd = acceptNext(stop);
    lock.lock();
    leading_ = false;
    if (fd < 0) {
      leadershipFree_.notify_one();
      return;
    }
    open_.insert(fd);
    if (stop.stop_requested())
      ::shutdown(fd, SHUT_RD);  // the stop came between accept and here
    else if (idle_ == 0 && pool_.size() < options_.maxConnections)
      pool_.emplace_back([this, stop] { work(stop); });
    else if (idle_ > 0)
      leadershipFree_.notify_one();  // an idle thread leads next
    lock.unlock();
    try {
      handler_(fd, stop);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "quorvane-agent: connection ended: %s\n", error.what());
    }
    lock.lock();
    // Only at the bound did the end of this connection free the leadership for someone.
    if (open_.size() == options_.maxConnections) leadershipFree_.notify_one();
    open_.erase(fd);
    ::close(fd);
  }
}

void ConnectionServer::run(std::stop_token stop) {
  wake_ = FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake_) throw DaemonError::fromErrno("eventfd");
  lastSocketCheck_ = std::chrono::steady_clock::now();
  std::stop_callback onStop(stop, [&] {
    uint64_t one = 1;
    [[maybe_unused]] auto ignored = ::write(wake_.get(), &one, sizeof one);
    MutexLock lock(mutex_);
    for (int fd : open_) ::shutdown(fd, SHUT_RD);
  });

  {
    MutexLock lock(mutex_);
    pool_.emplace_back([this, stop] { work(stop); });
  }
  // The leader checks the socket file as it waits for clients. At the connection bound nobody
  // leads, so this thread checks it then.
  std::condition_variable_any stopped;
  {
    MutexLock lock(mutex_);
    while (!stopped.wait_for(mutex_, stop, options_.socketCheckInterval, [] { return false; })) {
      if (stop.stop_requested()) break;
      if (!leading_) checkSocketFile();
    }
  }
  // No thread joins the pool after the stop, so the pool can be taken and joined.
  std::vector<std::thread> threads;
  {
    MutexLock lock(mutex_);
    threads = std::move(pool_);
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace quorvane
