#include "AgentCore/ControlProtocol.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "Platform/Paths.h"

namespace quorvane {

std::filesystem::path agentSocketPath() { return homeFolder() / ".ssh" / "quorvane" / "agent.sock"; }

std::filesystem::path controlSocketPath() {
  return homeFolder() / ".ssh" / "quorvane" / "control.sock";
}

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

bool writeControlLine(int fd, const JSON& message) {
  std::string line = message.dump(-1, ' ', false, JSON::error_handler_t::replace) + "\n";
  size_t written = 0;
  while (written < line.size()) {
    ssize_t sent = ::send(fd, line.data() + written, line.size() - written, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    written += static_cast<size_t>(sent);
  }
  return true;
}

std::optional<ControlClient> ControlClient::connect(const std::filesystem::path& path) {
  const std::string text = path.string();
  sockaddr_un address{};
  if (text.size() >= sizeof address.sun_path) return std::nullopt;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, text.data(), text.size());
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket ||
      ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return std::nullopt;
  return ControlClient(std::move(socket));
}

JSON ControlClient::request(const JSON& message) {
  if (!writeControlLine(socket_.get(), message))
    throw std::runtime_error("the agent closed the control connection");
  auto answer = next();
  if (!answer) throw std::runtime_error("the agent closed the control connection");
  return *answer;
}

std::optional<JSON> ControlClient::next() {
  auto line = readControlLine(socket_.get(), buffer_);
  if (!line) return std::nullopt;
  JSON parsed = JSON::parse(*line, nullptr, false);
  if (!parsed.is_object()) throw std::runtime_error("the agent sent something that is not JSON");
  return parsed;
}

std::optional<JSON> postToAgent(const JSON& message) {
  auto client = ControlClient::connect();
  if (!client) return std::nullopt;
  try {
    return client->request(message);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace quorvane
