#pragma once

#include <optional>
#include <string_view>

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
//            {"event": "request", "request": {...}} or {"event": "ended", "id": ...,
//            "ending": "answered"|"expired"|"cancelled"}; a request that a paired device should
//            decide but that waits here because remote approval is unavailable carries
//            "remoteOffline": true
//   resumeRemote                         clear the remote-approval pause
//   presence {"enabled": bool}           turn the presence verification on or off
//
// Approving ("answer" with "approve": true), "unlock", "resumeRemote" and "presence" take effect
// only after the agent has verified the user's presence (PAM). While it verifies, the agent sends
// the messages of the verification on the same connection, before the answer, as lines
//   {"prompt": {"style": "secret"|"visible"|"info"|"error", "text": TEXT}}
// and the client replies to each "secret" and "visible" prompt with one line (ControlProtocol/
// PromptReply.h): {"message": "promptAnswer", "answer": TEXT} or {"message": "promptCancel"}.
// What is typed is neither logged nor kept.
inline constexpr std::string_view kReloadMessage = "com.tallowmere.quorvane.reload";
inline constexpr std::string_view kLockAllMessage = "com.tallowmere.quorvane.lockAll";
inline constexpr std::string_view kPauseRemoteMessage = "com.tallowmere.quorvane.pauseRemote";
inline constexpr std::string_view kShowPendingMessage = "com.tallowmere.quorvane.showPending";

// The prompt line of a verification, and the prompt it carries (nothing for any other line).
JSON promptLine(const PresencePrompt& prompt);
std::optional<PresencePrompt> promptOf(const JSON& line);

}  // namespace quorvane
