#pragma once

#include <string_view>

#include "Base/JSONReader.h"

namespace quorvane {

// How a key is protected. The first three are hardware keys that cannot leave the machine, told
// apart by what unlocks a signature; `imported` is a software key (imported from a file or
// generated here) whose gate is the agent's approval flow.
//   touchIDOnly      only the user's presence on this machine unlocks a signature
//   touchIDOrWatch   the user's presence here or on a paired device
//   remoteApproval   the hardware signs without its own prompt; the approval flow is the gate
//   imported         a software key
enum class ProtectionClass { touchIDOnly, touchIDOrWatch, remoteApproval, imported };

// The raw value: the case name.
std::string_view rawValue(ProtectionClass protection);

// JSON form: the raw value. Decoding any other string is dataCorrupted.
JSON toJSON(ProtectionClass protection);
ProtectionClass decodeProtectionClass(const JSONReader& reader);

}  // namespace quorvane
