#pragma once

#include <string_view>
#include <vector>

#include "AgentState/SupportState.h"
#include "Pairing/PairedDevice.h"
#include "Pairing/PairedMac.h"

namespace quorvane {

// The devices paired with this computer: the sealed file "devices.json" (purpose "devices"), a
// JSON array of PairedDevice. The agent re-reads it for every request that goes to paired devices.
inline constexpr std::string_view kPairedDevicesFile = "devices.json";
inline constexpr std::string_view kPairedDevicesPurpose = "devices";

// The computers this side approves for (the approving side's own list): the sealed file
// "paired-computers.json" (purpose "paired-computers"), a JSON array of PairedMac.
inline constexpr std::string_view kPairedMacsFile = "paired-computers.json";
inline constexpr std::string_view kPairedMacsPurpose = "paired-computers";

// Nothing paired yet when the file is missing. Throws SealedFileError (tampered, malformed) or the
// sealing key's error; a file that does not decode is malformed.
std::vector<PairedDevice> loadPairedDevices(const SupportState& support);
void savePairedDevices(const SupportState& support, const std::vector<PairedDevice>& devices);

std::vector<PairedMac> loadPairedMacs(const SupportState& support);
void savePairedMacs(const SupportState& support, const std::vector<PairedMac>& macs);

}  // namespace quorvane
