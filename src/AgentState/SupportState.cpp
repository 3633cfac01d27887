#include "AgentState/SupportState.h"

#include <utility>

#include "ActivityStore/KeychainChainAnchor.h"
#include "KeyStore/KeychainSealingKey.h"
#include "KeyStore/KeychainSecretStore.h"
#include "Platform/FileKeychain.h"
#include "Platform/Paths.h"

namespace quorvane {

SupportState SupportState::open() {
  auto keychain = std::make_shared<FileKeychain>();
  return {keychain, std::make_shared<KeychainSealingKey>(keychain), supportFolder()};
}

std::shared_ptr<KeyStore> SupportState::openKeyStore(std::shared_ptr<HardwareKeys> hardware) const {
  return std::make_shared<KeyStore>(std::make_shared<KeychainSecretStore>(keychain),
                                    folder / "keys.json", sealing, std::move(hardware));
}

std::shared_ptr<ActivityStore> SupportState::openActivityLog(bool anchorInBackground) const {
  auto anchor = std::make_shared<KeychainChainAnchor>(*keychain);
  auto chainKey = anchor->chainKey();
  std::filesystem::create_directories(folder);
  return ActivityStore::open(folder / "activity.sqlite", anchor, std::move(chainKey),
                             anchorInBackground);
}

}  // namespace quorvane
