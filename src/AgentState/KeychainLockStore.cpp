#include "AgentState/KeychainLockStore.h"

#include "AgentState/KeychainFlag.h"

namespace quorvane {

KeychainLockStore::KeychainLockStore(std::shared_ptr<Keychain> keychain)
    : keychain_(std::move(keychain)) {}

bool KeychainLockStore::isLocked() { return readKeychainFlag(*keychain_, kService, kAccount); }

void KeychainLockStore::setLocked(bool locked) {
  writeKeychainFlag(*keychain_, kService, kAccount, locked);
}

}  // namespace quorvane
