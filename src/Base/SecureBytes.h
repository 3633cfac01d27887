#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Base/Bytes.h"

namespace quorvane {

// A byte buffer for secrets (private keys, passphrases, derived keys). Its storage is wiped with
// OPENSSL_cleanse when the value dies or is overwritten, and it never grows in place, so no stale
// copy is left behind by a reallocation. Equality is decided in constant time for equal sizes.
class SecureBytes {
 public:
  SecureBytes() = default;
  explicit SecureBytes(size_t size);
  explicit SecureBytes(ByteView bytes);
  // Takes the bytes and wipes the source vector.
  static SecureBytes adopt(Bytes& source);

  SecureBytes(const SecureBytes& other);
  SecureBytes& operator=(const SecureBytes& other);
  SecureBytes(SecureBytes&& other) noexcept;
  SecureBytes& operator=(SecureBytes&& other) noexcept;
  ~SecureBytes();

  size_t size() const { return storage_.size(); }
  bool empty() const { return storage_.empty(); }
  uint8_t* data() { return storage_.data(); }
  const uint8_t* data() const { return storage_.data(); }
  ByteView view() const { return ByteView(storage_); }

  friend bool operator==(const SecureBytes& a, const SecureBytes& b);

 private:
  void wipe();
  std::vector<uint8_t> storage_;
};

// Wipes a buffer that held secret bytes; use on temporaries that cannot be SecureBytes.
void secureWipe(void* data, size_t size);
void secureWipe(Bytes& bytes);

}  // namespace quorvane
