#include "Platform/SocketIO.h"

#include <sys/socket.h>

#include <cerrno>

namespace quorvane {

bool readExactly(int fd, uint8_t* out, size_t count) {
  while (count > 0) {
    ssize_t got = ::recv(fd, out, count, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    out += got;
    count -= static_cast<size_t>(got);
  }
  return true;
}

bool writeAll(int fd, ByteView bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    ssize_t sent = ::send(fd, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    written += static_cast<size_t>(sent);
  }
  return true;
}

std::optional<std::string> readLine(int fd, std::string& buffer, size_t maxLength) {
  for (;;) {
    size_t newline = buffer.find('\n');
    if (newline != std::string::npos) {
      std::string line = buffer.substr(0, newline);
      buffer.erase(0, newline + 1);
      return line;
    }
    if (buffer.size() > maxLength) return std::nullopt;
    char chunk[4096];
    ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::nullopt;
    buffer.append(chunk, static_cast<size_t>(got));
  }
}

}  // namespace quorvane
