#include "ControlProtocol/ControlLineIO.h"

#include "Platform/SocketIO.h"

namespace quorvane {

std::optional<std::string> readControlLine(int fd, std::string& buffer) {
  return readLine(fd, buffer, kMaxControlLineLength);
}

bool writeControlLine(int fd, const JSON& message) {
  std::string line = message.dump(-1, ' ', false, JSON::error_handler_t::replace) + "\n";
  return writeAll(fd, bytesOf(line));
}

}  // namespace quorvane
