#pragma once

#include <optional>
#include <string>

#include "Crypto/SecureBytes.h"

namespace quorvane::cli {

// Reads a line from the terminal without echoing it, after printing `prompt` to standard error.
// Nothing when standard input is not a terminal or reading fails.
std::optional<SecureBytes> readSecretFromTerminal(const std::string& prompt);

// `text` with control characters (which could steer the terminal) shown as "?".
std::string printable(std::string text);

}  // namespace quorvane::cli
