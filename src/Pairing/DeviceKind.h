#pragma once

#include <cstdint>
#include <string_view>

namespace quorvane {

// What kind of device approves: the byte value travels in the pairing reply and is kept with the
// pairing. A byte of 4 or more is no kind. An approving Linux computer is `mac` (a computer).
enum class DeviceKind : uint8_t { unknown = 0, phone = 1, watch = 2, mac = 3 };

// The kind of the device with this hardware model name: "watch" makes a paired device, "iphone"
// or "ipad" a phone (case-insensitive); anything else is a computer.
DeviceKind deviceKindOfModel(std::string_view modelName);

// How the kind is shown to people: "device", "phone", "paired device", "computer".
std::string_view displayName(DeviceKind kind);

}  // namespace quorvane
