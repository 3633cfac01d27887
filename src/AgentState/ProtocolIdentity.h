#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ApprovalProto/DeviceKeys.h"
#include "Platform/Keychain.h"
#include "RelayClient/MailboxCredentials.h"

namespace quorvane {

// This computer's own keys of the approval protocol, in the keychain item
// ("com.tallowmere.quorvane.device-keys", "this-computer"): JSON {"signingKey" (the P-256
// private scalar), "kemSeed", "kemKey" (the X-Wing seed and public key), all base64, "name"}.
// The same keys serve whether this computer asks for approvals or gives them.
inline constexpr std::string_view kDeviceKeysService = "com.tallowmere.quorvane.device-keys";
inline constexpr std::string_view kDeviceKeysAccount = "this-computer";

// The stored keys, or nothing when none were made yet. Throws std::runtime_error for an item that
// cannot be read or does not decode.
std::optional<DeviceKeys> loadDeviceKeys(Keychain& keychain);
// The stored keys, or new ones named `name` (stored first). Throws std::runtime_error when they
// cannot be stored.
DeviceKeys loadOrCreateDeviceKeys(Keychain& keychain, const std::string& name);

// This computer's own mailbox on a relay, where answers and pairing messages for it arrive: the
// keychain item ("com.tallowmere.quorvane.relay-mailbox", the relay's base URL), JSON
// MailboxCredentials.
inline constexpr std::string_view kOwnMailboxService = "com.tallowmere.quorvane.relay-mailbox";

std::optional<MailboxCredentials> loadOwnMailbox(Keychain& keychain, std::string_view relayURL);
// Throws std::runtime_error when the item cannot be written.
void saveOwnMailbox(Keychain& keychain, std::string_view relayURL,
                    const MailboxCredentials& mailbox);

// This machine's host name, the default name of its keys ("computer" when it has none).
std::string thisComputerName();

}  // namespace quorvane
