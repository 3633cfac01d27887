#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Base/SecureBytes.h"
#include "Platform/FileDescriptor.h"
#include "Base/JSONReader.h"
#include "Platform/PresenceVerifier.h"

namespace quorvane {

// The control socket: how the application and its frontends talk to the running agent. Every
// message is one JSON object on one line, {"message": NAME, ...}; every answer is one line,
// {"ok": true, ...} or {"ok": false, "error": TEXT}. Only processes of the agent's own user are
// served.
//
//   com.tallowmere.quorvane.reload       re-read keys, rules and host pins
//   com.tallowmere.quorvane.lockAll      lock the agent
//   com.tallowmere.quorvane.pauseRemote  re-read the remote-approval setting
//   com.tallowmere.quorvane.showPending  answer with "pending", as "pending" does
//   unlock                               unlock the agent
//   status                               {"locked", "pending" count, "epoch", "pid"}
//   pending                              {"pending": [approval requests]}
//   answer   {"id", "approve": bool, "windowSeconds"?, "block"?, "frontend"}
//   watch    answers {"ok": true}, then one line per event until the client hangs up:
//            {"event": "request", "request": {...}} or {"event": "ended", "id": ...}
//   resumeRemote                         clear the remote-approval pause
//   presence {"enabled": bool}           turn the presence verification on or off
//
// Approving ("answer" with "approve": true), "unlock", "resumeRemote" and "presence" take effect
// only after the agent has verified the user's presence (PAM). While it verifies, the agent sends
// the messages of the verification on the same connection, before the answer, as lines
//   {"prompt": {"style": "secret"|"visible"|"info"|"error", "text": TEXT}}
// and the client replies to each "secret" and "visible" prompt with one line (AgentCore/
// PromptReply.h): {"message": "promptAnswer", "answer": TEXT} or {"message": "promptCancel"}.
// What is typed is neither logged nor kept.
inline constexpr std::string_view kReloadMessage = "com.tallowmere.quorvane.reload";
inline constexpr std::string_view kLockAllMessage = "com.tallowmere.quorvane.lockAll";
inline constexpr std::string_view kPauseRemoteMessage = "com.tallowmere.quorvane.pauseRemote";
inline constexpr std::string_view kShowPendingMessage = "com.tallowmere.quorvane.showPending";

// Lines longer than this are refused; the connection is closed.
inline constexpr size_t kMaxControlLineLength = 1 << 20;

// The agent's sockets: ~/.ssh/quorvane/agent.sock and control.sock.
std::filesystem::path agentSocketPath();
std::filesystem::path controlSocketPath();

// Reads one line (without its newline) from a blocking socket; nothing at end of input, on an
// error, or for a line over kMaxControlLineLength. `buffer` keeps bytes read past the line.
std::optional<std::string> readControlLine(int fd, std::string& buffer);
// Writes `message` compactly with a newline; false when the peer is gone.
bool writeControlLine(int fd, const JSON& message);
// Writes bytes as they are (a line that is already encoded); false when the peer is gone.
bool writeControlBytes(int fd, ByteView bytes);

// The prompt line of a verification, and the prompt it carries (nothing for any other line).
JSON promptLine(const PresencePrompt& prompt);
std::optional<PresencePrompt> promptOf(const JSON& line);

// Shows a prompt of a verification and returns what was typed, or nothing to cancel.
using PromptHandler = std::function<std::optional<SecureBytes>(const PresencePrompt&)>;

// A client of the control socket.
class ControlClient {
 public:
  // Connects to `path`; nothing when no agent answers there.
  static std::optional<ControlClient> connect(const std::filesystem::path& path = controlSocketPath());

  // Sends one message and reads its answer. Throws std::runtime_error when the agent hangs up or
  // answers something that is not a JSON object. Prompts of a verification are cancelled.
  JSON request(const JSON& message);
  // Like `request`, with each prompt of a verification shown through `prompts`, whose answers go
  // back to the agent (and are wiped once sent).
  JSON exchange(const JSON& message, const PromptHandler& prompts);
  // The next line of a watch stream; nothing when the agent hung up.
  std::optional<JSON> next();

 private:
  explicit ControlClient(FileDescriptor socket) : socket_(std::move(socket)) {}
  FileDescriptor socket_;
  std::string buffer_;
};

// Sends one message to a running agent, if there is one: the answer, or nothing when no agent
// runs. For notifications such as reload, whose sender goes on either way.
std::optional<JSON> postToAgent(const JSON& message);

}  // namespace quorvane
