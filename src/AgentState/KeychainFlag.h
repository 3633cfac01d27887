#pragma once

#include <string_view>

#include "Platform/Keychain.h"

namespace quorvane {

// A setting kept as a one-byte keychain item, 1 for on. Absent or unreadable reads as off.
bool readKeychainFlag(Keychain& keychain, std::string_view service, std::string_view account);

// Writes the flag by update, then by add when the item does not exist yet; the keychain's status
// (kKeychainSuccess when written).
KeychainStatus writeKeychainFlag(Keychain& keychain, std::string_view service,
                                 std::string_view account, bool on);

}  // namespace quorvane
