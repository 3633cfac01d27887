#include "KeyStore/ProtectionClass.h"

#include <array>
#include <string>

namespace quorvane {

namespace {

constexpr std::array kAllProtectionClasses = {
    ProtectionClass::touchIDOnly, ProtectionClass::touchIDOrWatch, ProtectionClass::remoteApproval,
    ProtectionClass::imported};

}  // namespace

std::string_view rawValue(ProtectionClass protection) {
  switch (protection) {
    case ProtectionClass::touchIDOnly: return "touchIDOnly";
    case ProtectionClass::touchIDOrWatch: return "touchIDOrWatch";
    case ProtectionClass::remoteApproval: return "remoteApproval";
    case ProtectionClass::imported: return "imported";
  }
  return "imported";
}

JSON toJSON(ProtectionClass protection) { return std::string(rawValue(protection)); }

ProtectionClass decodeProtectionClass(const JSONReader& reader) {
  std::string text = reader.string();
  for (ProtectionClass protection : kAllProtectionClasses)
    if (rawValue(protection) == text) return protection;
  reader.fail("Cannot initialize ProtectionClass from invalid String value " + text);
}

}  // namespace quorvane
