#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "AgentState/SupportState.h"

namespace quorvane {

// The relay that remote approval and pairing talk through: its base URL and, for a relay with a
// private certificate authority, the PEM file of the authorities to trust instead of the system's.
// Stored in the sealed file "relay.json" (purpose "relay") as {"baseURL", "caFile"} ("caFile" only
// when set); {} when the relay was cleared (removing the file would read as tampered once it has
// been written).
inline constexpr std::string_view kRelaySettingPurpose = "relay";
inline constexpr std::string_view kRelaySettingFile = "relay.json";

struct RelaySetting {
  std::string baseURL;
  std::optional<std::filesystem::path> caFile;

  friend bool operator==(const RelaySetting&, const RelaySetting&) = default;
};

// The relay the user set; nothing when none was ever set or it was cleared. Throws
// SealedFileError (tampered, malformed) or the sealing key's error.
std::optional<RelaySetting> loadRelaySetting(const SupportState& support);

// Saves `setting`, or clears the relay for nothing. Throws what SealedFile::write throws.
void saveRelaySetting(const SupportState& support, const std::optional<RelaySetting>& setting);

}  // namespace quorvane
