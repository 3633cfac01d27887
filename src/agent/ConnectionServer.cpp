#include "agent/ConnectionServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "agent/DaemonError.h"

namespace quorvane {

ConnectionServer::ConnectionServer(UnixListener& listener, Handler handler, Options options)
    : listener_(listener), options_(options), shared_(std::make_shared<Shared>()) {
  shared_->handler = std::move(handler);
}

size_t ConnectionServer::activeConnections() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->open.size();
}

void ConnectionServer::serve(const std::shared_ptr<Shared>& shared, int fd,
                             std::stop_token stop) {
  try {
    shared->handler(fd, stop);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvane-agent: connection ended: %s\n", error.what());
  }
  std::lock_guard lock(shared->mutex);
  shared->open.erase(fd);
  ::close(fd);
  shared->changed.notify_all();
}

void ConnectionServer::run(std::stop_token stop) {
  FileDescriptor wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake) throw DaemonError::fromErrno("eventfd");
  std::stop_callback wakeOnStop(stop, [&] {
    uint64_t one = 1;
    [[maybe_unused]] auto ignored = ::write(wake.get(), &one, sizeof one);
    shared_->changed.notify_all();
  });

  auto lastCheck = std::chrono::steady_clock::now();
  while (!stop.stop_requested()) {
    if (std::chrono::steady_clock::now() - lastCheck >= options_.socketCheckInterval) {
      lastCheck = std::chrono::steady_clock::now();
      if (!listener_.stillInPlace()) {
        try {
          listener_.recreate();
          std::fprintf(stderr, "quorvane-agent: socket %s was missing; made it again\n",
                       listener_.path().c_str());
        } catch (const DaemonError& error) {
          std::fprintf(stderr, "quorvane-agent: %s\n", error.what());
        }
      }
    }
    const auto nextCheck = lastCheck + options_.socketCheckInterval;

    {
      std::unique_lock lock(shared_->mutex);
      if (!shared_->changed.wait_until(lock, stop, nextCheck, [&] {
            return shared_->open.size() < options_.maxConnections;
          }))
        continue;
    }

    auto untilCheck = std::chrono::duration_cast<std::chrono::milliseconds>(
        nextCheck - std::chrono::steady_clock::now());
    pollfd entries[2] = {{listener_.fd(), POLLIN, 0}, {wake.get(), POLLIN, 0}};
    int timeout = static_cast<int>(std::max<int64_t>(untilCheck.count(), 0) + 1);
    if (::poll(entries, 2, timeout) <= 0 || (entries[0].revents & POLLIN) == 0) continue;

    int fd = ::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    std::lock_guard lock(shared_->mutex);
    shared_->open.insert(fd);
    std::thread([shared = shared_, fd, stop] { serve(shared, fd, stop); }).detach();
  }

  std::unique_lock lock(shared_->mutex);
  for (int fd : shared_->open) ::shutdown(fd, SHUT_RD);
  shared_->changed.wait(lock, [&] { return shared_->open.empty(); });
}

}  // namespace quorvane
