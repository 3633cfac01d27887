#include "AgentState/RemotePause.h"

#include "AgentState/KeychainFlag.h"

namespace quorvane {

bool remoteApprovalPaused(Keychain& keychain) {
  return readKeychainFlag(keychain, kSettingsService, kRemotePausedAccount);
}

KeychainStatus setRemoteApprovalPaused(Keychain& keychain, bool paused) {
  return writeKeychainFlag(keychain, kSettingsService, kRemotePausedAccount, paused);
}

}  // namespace quorvane
