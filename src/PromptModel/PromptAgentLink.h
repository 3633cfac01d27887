#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "Base/JSONReader.h"
#include "ControlProtocol/ControlClient.h"

namespace quorvane {

// Opens the watch stream on the control socket at `socket`: the agent then sends every waiting
// request, and each new request and end, as lines for PromptQueue::apply. Nothing when no agent
// answers there.
std::optional<ControlClient> openPromptWatch(const std::filesystem::path& socket);

// What became of an answer sent from the dialog.
struct AnswerOutcome {
  bool accepted = false;
  std::string text;  // the agent's refusal, or a confirmation
};

// Sends `message` (from answerMessage) on a connection of its own, so that the watch stream keeps
// flowing meanwhile. The verification of the person's presence that an approval starts talks
// through `prompts` (PAM's messages, a password or fingerprint prompt). Blocks until the agent
// answers; never throws for what the agent does.
AnswerOutcome sendPromptAnswer(const std::filesystem::path& socket, const JSON& message,
                               const PromptHandler& prompts);

}  // namespace quorvane
