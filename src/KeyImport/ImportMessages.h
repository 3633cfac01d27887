#pragma once

#include <optional>
#include <string>

#include "KeyImport/KeyImportError.h"
#include "KeyImport/ParsedPrivateKey.h"

namespace quorvane {

// The texts that the application shows around key import, so that the import screen and the
// command line say exactly the same thing.

// The prompt of the import screen.
inline constexpr const char* kImportPrompt =
    "Choose a private key file, for example ~/.ssh/id_ed25519.";

// For a file that cannot be read as text (not UTF-8, unreadable).
inline constexpr const char* kUnreadableKeyFileMessage = "This file can't be read as a key file.";

// The sentence for an import error, e.g. "The passphrase is wrong."
std::string importErrorMessage(const KeyImportError& error);

// The advice shown beside an imported RSA key below 3072 bits; nothing for every other key.
std::optional<std::string> importNotice(const ParsedPrivateKey& key);

}  // namespace quorvane
