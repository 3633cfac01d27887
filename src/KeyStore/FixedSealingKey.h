#pragma once

#include <map>
#include <mutex>
#include <string>

#include "KeyStore/SealingKeyProvider.h"

namespace quorvane {

// A sealing key given at creation, with generations kept in memory (starting empty), for use in
// one process where no keychain is wanted: tests, previews, fuzzing. Never fails.
class FixedSealingKey final : public SealingKeyProvider {
 public:
  // REQUIRES: key is 32 bytes.
  explicit FixedSealingKey(SecureBytes key);

  SecureBytes key() override;
  uint64_t generation(std::string_view purpose) override;
  void setGeneration(uint64_t generation, std::string_view purpose) override;

 private:
  const SecureBytes key_;
  std::mutex mutex_;
  std::map<std::string, uint64_t, std::less<>> generations_;  // guarded by mutex_
};

}  // namespace quorvane
