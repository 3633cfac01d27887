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

// This computer's own mailboxes on a relay, in the keychain items
// ("com.tallowmere.quorvane.relay-mailbox", the relay's base URL) for the computer that asks (its
// answers and pairing messages arrive there) and ("com.tallowmere.quorvane.relay-mailbox",
// "approving " + the base URL) for the approving side (requests arrive there): JSON
// MailboxCredentials. A computer that does both keeps two mailboxes, so that neither side reads,
// and the relay forgets, what was meant for the other.
inline constexpr std::string_view kOwnMailboxService = "com.tallowmere.quorvane.relay-mailbox";

enum class MailboxRole { asking, approving };

std::optional<MailboxCredentials> loadOwnMailbox(Keychain& keychain, std::string_view relayURL,
                                                 MailboxRole role);
// Throws std::runtime_error when the item cannot be written.
void saveOwnMailbox(Keychain& keychain, std::string_view relayURL, MailboxRole role,
                    const MailboxCredentials& mailbox);

// This machine's host name, the default name of its keys ("computer" when it has none).
std::string thisComputerName();

}  // namespace quorvane
