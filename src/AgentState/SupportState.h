#pragma once

#include <filesystem>
#include <memory>

#include "ActivityStore/ActivityStore.h"
#include "KeyStore/KeyStore.h"
#include "KeyStore/SealingKeyProvider.h"
#include "Platform/Keychain.h"

namespace quorvane {

// The state the agent and the application share: the file keychain, the sealing key, and the
// files of the support folder. Both programs open it the same way, from HOME and XDG_DATA_HOME.
struct SupportState {
  std::shared_ptr<Keychain> keychain;
  std::shared_ptr<SealingKeyProvider> sealing;
  std::filesystem::path folder;

  // The real state: the file keychain and the keychain-backed sealing key.
  static SupportState open();

  // The key store; `hardware` is the back end of hardware keys (null: none, so that listing and
  // software keys never touch a TPM).
  std::shared_ptr<KeyStore> openKeyStore(std::shared_ptr<HardwareKeys> hardware = nullptr) const;
  // The activity log "activity.sqlite" with its keychain-backed anchor and chain key. The agent
  // records the anchor in the background (see ActivityStore::open).
  std::shared_ptr<ActivityStore> openActivityLog(bool anchorInBackground = false) const;
};

}  // namespace quorvane
