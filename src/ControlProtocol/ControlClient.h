#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "Base/JSONReader.h"
#include "Base/SecureBytes.h"
#include "ControlProtocol/SocketPaths.h"
#include "Platform/FileDescriptor.h"
#include "Platform/PresenceVerifier.h"

namespace quorvane {

// Shows a prompt of a verification and returns what was typed, or nothing to cancel.
using PromptHandler = std::function<std::optional<SecureBytes>(const PresencePrompt&)>;

// A client of the control socket.
class ControlClient {
 public:
  // Connects to `path`; nothing when no agent answers there.
  static std::optional<ControlClient> connect(
      const std::filesystem::path& path = controlSocketPath());

  // Sends one message and reads its answer. Throws ControlError when the agent hangs up or
  // answers something that is not a JSON object. Prompts of a verification are cancelled.
  JSON request(const JSON& message);
  // Like `request`, with each prompt of a verification shown through `prompts`, whose answers go
  // back to the agent (and are wiped once sent).
  JSON exchange(const JSON& message, const PromptHandler& prompts);
  // The next line of a watch stream; nothing when the agent hung up.
  std::optional<JSON> next();
  // For waiting on the stream with poll: the socket, and whether a whole line is already read
  // (then poll would not tell).
  int fd() const { return socket_.get(); }
  bool hasBufferedLine() const { return buffer_.find('\n') != std::string::npos; }

 private:
  explicit ControlClient(FileDescriptor socket) : socket_(std::move(socket)) {}
  FileDescriptor socket_;
  std::string buffer_;
};

// Sends one message to a running agent, if there is one: the answer, or nothing when no agent
// runs. For notifications such as reload, whose sender goes on either way.
std::optional<JSON> postToAgent(const JSON& message);

}  // namespace quorvane
