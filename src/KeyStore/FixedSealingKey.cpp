#include "KeyStore/FixedSealingKey.h"

#include <utility>

#include "Base/Check.h"

namespace quorvane {

FixedSealingKey::FixedSealingKey(SecureBytes key) : key_(std::move(key)) {
  QUORVANE_CHECK(key_.size() == 32, "a sealing key has 256 bits");
}

SecureBytes FixedSealingKey::key() { return key_; }

uint64_t FixedSealingKey::generation(std::string_view purpose) {
  std::lock_guard lock(mutex_);
  auto found = generations_.find(purpose);
  return found == generations_.end() ? 0 : found->second;
}

void FixedSealingKey::setGeneration(uint64_t generation, std::string_view purpose) {
  std::lock_guard lock(mutex_);
  generations_.insert_or_assign(std::string(purpose), generation);
}

}  // namespace quorvane
