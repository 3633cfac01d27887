#include "AgentCore/RemotePause.h"

namespace quorvane {

bool remoteApprovalPaused(Keychain& keychain) {
  auto item = keychain.read(kSettingsService, kRemotePausedAccount);
  return item.status == kKeychainSuccess && item.data.size() == 1 && item.data.data()[0] == 1;
}

KeychainStatus setRemoteApprovalPaused(Keychain& keychain, bool paused) {
  const uint8_t value = paused ? 1 : 0;
  KeychainStatus status = keychain.update(kSettingsService, kRemotePausedAccount, ByteView(&value, 1));
  if (status == kKeychainItemNotFound)
    status = keychain.add(kSettingsService, kRemotePausedAccount, ByteView(&value, 1));
  return status;
}

}  // namespace quorvane
