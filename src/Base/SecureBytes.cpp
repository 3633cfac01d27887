#include "Base/SecureBytes.h"

#include <openssl/crypto.h>

#include <utility>

namespace quorvane {

void secureWipe(void* data, size_t size) {
  if (size > 0) OPENSSL_cleanse(data, size);
}

void secureWipe(Bytes& bytes) {
  secureWipe(bytes.data(), bytes.size());
  bytes.clear();
}

SecureBytes::SecureBytes(size_t size) : storage_(size, 0) {}

SecureBytes::SecureBytes(ByteView bytes) : storage_(bytes.begin(), bytes.end()) {}

SecureBytes SecureBytes::adopt(Bytes& source) {
  SecureBytes result{ByteView(source)};
  secureWipe(source);
  return result;
}

SecureBytes::SecureBytes(const SecureBytes& other) : storage_(other.storage_) {}

SecureBytes& SecureBytes::operator=(const SecureBytes& other) {
  if (this != &other) {
    wipe();
    storage_ = other.storage_;
  }
  return *this;
}

// Moving a vector hands over its heap block, so nothing is left to wipe in the source.
SecureBytes::SecureBytes(SecureBytes&& other) noexcept : storage_(std::move(other.storage_)) {
  other.storage_.clear();
}

SecureBytes& SecureBytes::operator=(SecureBytes&& other) noexcept {
  if (this != &other) {
    wipe();
    storage_ = std::move(other.storage_);
    other.storage_.clear();
  }
  return *this;
}

SecureBytes::~SecureBytes() { wipe(); }

void SecureBytes::wipe() {
  secureWipe(storage_.data(), storage_.size());
  storage_.clear();
}

bool operator==(const SecureBytes& a, const SecureBytes& b) {
  if (a.size() != b.size()) return false;
  return a.empty() || CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace quorvane
