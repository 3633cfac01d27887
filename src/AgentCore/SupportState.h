#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ActivityStore/ActivityStore.h"
#include "AgentCore/HostPinStore.h"
#include "AgentCore/LockStore.h"
#include "KeyStore/KeyStore.h"
#include "KeyStore/SealingKeyProvider.h"
#include "Platform/Keychain.h"
#include "Policy/Rule.h"

namespace quorvane {

// The state the agent and the application share: the file keychain, the sealing key, and the
// files of the support folder. Both programs open it the same way, from HOME and XDG_DATA_HOME.
struct SupportState {
  std::shared_ptr<Keychain> keychain;
  std::shared_ptr<SealingKeyProvider> sealing;
  std::filesystem::path folder;

  // The real state: the file keychain and the keychain-backed sealing key.
  static SupportState open();

  std::shared_ptr<KeyStore> openKeyStore() const;
  // The activity log "activity.sqlite" with its keychain-backed anchor and chain key. The agent
  // records the anchor in the background (see ActivityStore::open).
  std::shared_ptr<ActivityStore> openActivityLog(bool anchorInBackground = false) const;
};

// The rules file "rules.json" (sealed, purpose "rules") as the application sees it.
struct RulesFile {
  enum class State { ok, none, tampered, unreadable };
  State state = State::none;
  std::vector<Rule> rules;  // empty unless ok
  std::string problem;      // for unreadable: what went wrong

  static constexpr std::string_view kPurpose = "rules";
  static RulesFile read(const SupportState& support);
  static void save(const SupportState& support, const std::vector<Rule>& rules);
};

// Host pins in the sealed file "hosts.json" (purpose "hosts"): an object from host name to
// host key fingerprint. A file that cannot be read holds no pins.
class SealedHostPinStore final : public HostPinStore {
 public:
  explicit SealedHostPinStore(SupportState support);
  std::optional<std::string> pinnedFingerprint(std::string_view hostName) override;
  void pin(std::string_view hostName, std::string_view fingerprint) override;

 private:
  SupportState support_;
  std::mutex mutex_;
};

// The locked flag as the keychain item ("com.tallowmere.quorvane.settings", "agent-locked"),
// one byte, 1 for locked.
class KeychainLockStore final : public LockStore {
 public:
  static constexpr std::string_view kService = "com.tallowmere.quorvane.settings";
  static constexpr std::string_view kAccount = "agent-locked";

  explicit KeychainLockStore(std::shared_ptr<Keychain> keychain);
  bool isLocked() override;
  void setLocked(bool locked) override;

 private:
  std::shared_ptr<Keychain> keychain_;
};

}  // namespace quorvane
