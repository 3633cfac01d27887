#include "ControlProtocol/ControlLineIO.h"

#include <sys/socket.h>

#include <cerrno>

namespace quorvane {

std::optional<std::string> readControlLine(int fd, std::string& buffer) {
  for (;;) {
    size_t newline = buffer.find('\n');
    if (newline != std::string::npos) {
      std::string line = buffer.substr(0, newline);
      buffer.erase(0, newline + 1);
      return line;
    }
    if (buffer.size() > kMaxControlLineLength) return std::nullopt;
    char chunk[4096];
    ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::nullopt;
    buffer.append(chunk, static_cast<size_t>(got));
  }
}

bool writeControlBytes(int fd, ByteView bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    ssize_t sent = ::send(fd, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    written += static_cast<size_t>(sent);
  }
  return true;
}

bool writeControlLine(int fd, const JSON& message) {
  std::string line = message.dump(-1, ' ', false, JSON::error_handler_t::replace) + "\n";
  return writeControlBytes(fd, bytesOf(line));
}

}  // namespace quorvane
