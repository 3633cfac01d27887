#include "AgentCore/ControlProtocol.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "AgentCore/PromptReply.h"
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

JSON promptLine(const PresencePrompt& prompt) {
  return {{"prompt", {{"style", std::string(rawValue(prompt.style))}, {"text", prompt.text}}}};
}

std::optional<PresencePrompt> promptOf(const JSON& line) {
  auto found = line.find("prompt");
  if (found == line.end() || !found->is_object()) return std::nullopt;
  auto style = found->find("style");
  auto text = found->find("text");
  if (style == found->end() || !style->is_string() || text == found->end() || !text->is_string())
    return std::nullopt;
  auto parsed = presencePromptStyle(style->get<std::string>());
  if (!parsed) return std::nullopt;
  return PresencePrompt{*parsed, text->get<std::string>()};
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

JSON ControlClient::request(const JSON& message) { return exchange(message, nullptr); }

JSON ControlClient::exchange(const JSON& message, const PromptHandler& prompts) {
  if (!writeControlLine(socket_.get(), message))
    throw std::runtime_error("the agent closed the control connection");
  for (;;) {
    auto line = next();
    if (!line) throw std::runtime_error("the agent closed the control connection");
    auto prompt = promptOf(*line);
    if (!prompt) return *line;
    std::optional<SecureBytes> answer = prompts ? prompts(*prompt) : std::nullopt;
    if (!prompt->asks()) continue;
    const bool sent = answer ? writeControlBytes(socket_.get(), encodePromptAnswer(answer->view()).view())
                             : writeControlBytes(socket_.get(), bytesOf(kPromptCancelLine));
    if (!sent) throw std::runtime_error("the agent closed the control connection");
  }
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
