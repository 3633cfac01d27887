#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "KeyStore/SealingKeyProvider.h"
#include "Platform/Keychain.h"

namespace quorvane {

// The sealing key and generations as keychain items:
//   the key          service kService, account `account`, 32 bytes; made at the first call of
//                    key() when there is none
//   a generation     service kGenerationService, account = the purpose, the number as decimal
//                    text ("17"); no item reads as 0
// Throws KeyStoreError::keychain(status) for any keychain failure, and with kKeychainDecodeError
// for a key item that is not 32 bytes or a generation item that is not a decimal number.
class KeychainSealingKey final : public SealingKeyProvider {
 public:
  static constexpr std::string_view kService = "com.tallowmere.quorvane.sealing";
  static constexpr std::string_view kGenerationService = "com.tallowmere.quorvane.generation";
  static constexpr std::string_view kDefaultAccount = "file-sealing-key";

  explicit KeychainSealingKey(std::shared_ptr<Keychain> keychain,
                              std::string account = std::string(kDefaultAccount));

  // Reads the key; when there is none, adds a new random one. When that add finds an item after
  // all (another process made the key meanwhile), that process's key is read and used, so every
  // process ends up with the one stored key.
  SecureBytes key() override;
  uint64_t generation(std::string_view purpose) override;
  // Updates the purpose's item, or adds it when there is none.
  void setGeneration(uint64_t generation, std::string_view purpose) override;

 private:
  std::shared_ptr<Keychain> keychain_;
  std::string account_;
};

}  // namespace quorvane
