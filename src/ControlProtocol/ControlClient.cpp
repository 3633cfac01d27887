#include "ControlProtocol/ControlClient.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "ControlProtocol/ControlError.h"
#include "ControlProtocol/ControlLineIO.h"
#include "ControlProtocol/ControlMessages.h"
#include "ControlProtocol/PromptReply.h"
#include "Platform/SocketIO.h"

namespace quorvane {

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
  if (!writeControlLine(socket_.get(), message)) throw ControlError::agentHungUp();
  for (;;) {
    auto line = next();
    if (!line) throw ControlError::agentHungUp();
    auto prompt = promptOf(*line);
    if (!prompt) return *line;
    std::optional<SecureBytes> answer = prompts ? prompts(*prompt) : std::nullopt;
    if (!prompt->asks()) continue;
    const bool sent = answer ? writeAll(socket_.get(), encodePromptAnswer(answer->view()).view())
                             : writeAll(socket_.get(), bytesOf(kPromptCancelLine));
    if (!sent) throw ControlError::agentHungUp();
  }
}

std::optional<JSON> ControlClient::next() {
  auto line = readControlLine(socket_.get(), buffer_);
  if (!line) return std::nullopt;
  JSON parsed = JSON::parse(*line, nullptr, false);
  if (!parsed.is_object()) throw ControlError::notJSON();
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
