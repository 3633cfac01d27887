#pragma once

#include <cstdint>
#include <string_view>

#include "Base/SecureBytes.h"

namespace quorvane {

// The key that seals files and the generation counters that keep old copies out. Implementations
// are safe to call from many threads. Failures of a keychain-backed provider are
// KeyStoreError::keychain(status).
class SealingKeyProvider {
 public:
  virtual ~SealingKeyProvider() = default;

  // The 256-bit sealing key.
  virtual SecureBytes key() = 0;
  // The last generation recorded for `purpose`; 0 when none was ever recorded.
  virtual uint64_t generation(std::string_view purpose) = 0;
  virtual void setGeneration(uint64_t generation, std::string_view purpose) = 0;
};

}  // namespace quorvane
