#include "AgentState/KeychainFlag.h"

namespace quorvane {

bool readKeychainFlag(Keychain& keychain, std::string_view service, std::string_view account) {
  auto item = keychain.read(service, account);
  return item.status == kKeychainSuccess && item.data.size() == 1 && item.data.data()[0] == 1;
}

KeychainStatus writeKeychainFlag(Keychain& keychain, std::string_view service,
                                 std::string_view account, bool on) {
  const uint8_t value = on ? 1 : 0;
  KeychainStatus status = keychain.update(service, account, ByteView(&value, 1));
  if (status == kKeychainItemNotFound) status = keychain.add(service, account, ByteView(&value, 1));
  return status;
}

}  // namespace quorvane
