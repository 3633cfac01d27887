#pragma once

#include <memory>
#include <string_view>

#include "AgentState/LockStore.h"
#include "Platform/Keychain.h"

namespace quorvane {

// The locked flag as the keychain item ("com.tallowmere.quorvane.settings", "agent-locked"),
// one byte, 1 for locked. A flag that cannot be written leaves the agent locked in memory only.
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
