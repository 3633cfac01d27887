#include "Pairing/DeviceKind.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace quorvane {

DeviceKind deviceKindOfModel(std::string_view modelName) {
  std::string lower(modelName);
  std::ranges::transform(lower, lower.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower.find("watch") != std::string::npos) return DeviceKind::watch;
  if (lower.find("iphone") != std::string::npos || lower.find("ipad") != std::string::npos)
    return DeviceKind::phone;
  return DeviceKind::mac;
}

std::string_view displayName(DeviceKind kind) {
  switch (kind) {
    case DeviceKind::phone: return "phone";
    case DeviceKind::watch: return "paired device";
    case DeviceKind::mac: return "computer";
    case DeviceKind::unknown: break;
  }
  return "device";
}

}  // namespace quorvane
