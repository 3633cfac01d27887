#pragma once

#include <string_view>

#include "Platform/Keychain.h"

namespace quorvane {

// Whether approval on paired devices is paused: the keychain settings item
// ("com.tallowmere.quorvane.settings", "remote-paused"), one byte, 1 for paused. Absent or
// unreadable: not paused.
inline constexpr std::string_view kSettingsService = "com.tallowmere.quorvane.settings";
inline constexpr std::string_view kRemotePausedAccount = "remote-paused";

bool remoteApprovalPaused(Keychain& keychain);
// Writes by update, then add when the item does not exist yet; the keychain's status (0 when
// written).
KeychainStatus setRemoteApprovalPaused(Keychain& keychain, bool paused);

}  // namespace quorvane
