#pragma once

#include <optional>
#include <string>

#include "Base/SecureBytes.h"
#include "Platform/PresenceVerifier.h"

namespace quorvane::cli {

// Reads a line from the terminal without echoing it, after printing `prompt` to standard error.
// Nothing when standard input is not a terminal or reading fails.
std::optional<SecureBytes> readSecretFromTerminal(const std::string& prompt);

// Shows a prompt of the agent's presence verification on standard error and reads the answer: a
// secret one without echo from a terminal, else a line of standard input (how scripts and tests
// answer). Nothing for prompts that only tell, and at the end of input.
std::optional<SecureBytes> answerPresencePrompt(const PresencePrompt& prompt);

// `text` with control characters (which could steer the terminal) shown as "?".
std::string printable(std::string text);

}  // namespace quorvane::cli
