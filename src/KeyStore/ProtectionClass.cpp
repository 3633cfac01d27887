#include "KeyStore/ProtectionClass.h"

#include <string>

#include "Base/EnumNames.h"

namespace quorvane {

namespace {

constexpr EnumNames<ProtectionClass, 4> kProtectionClassNames{
    "ProtectionClass",
    {{{ProtectionClass::touchIDOnly, "touchIDOnly"},
      {ProtectionClass::touchIDOrWatch, "touchIDOrWatch"},
      {ProtectionClass::remoteApproval, "remoteApproval"},
      {ProtectionClass::imported, "imported"}}}};

}  // namespace

std::string_view rawValue(ProtectionClass protection) {
  return kProtectionClassNames.name(protection);
}

JSON toJSON(ProtectionClass protection) { return std::string(rawValue(protection)); }

ProtectionClass decodeProtectionClass(const JSONReader& reader) {
  return kProtectionClassNames.decode(reader);
}

}  // namespace quorvane
