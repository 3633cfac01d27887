#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"
#include "Base/WipingAllocator.h"

namespace quorvane {

// A byte buffer for secrets (private keys, passphrases, derived keys, typed answers). Its storage
// comes from a WipingAllocator, so every block it ever used is wiped when it is let go: when the
// value dies, is overwritten, or grows. Equality is decided in constant time for equal sizes.
class SecureBytes {
 public:
  SecureBytes() = default;
  explicit SecureBytes(size_t size);
  explicit SecureBytes(ByteView bytes);
  // Takes the bytes and wipes the source vector.
  static SecureBytes adopt(Bytes& source);

  // Reads one line of typed text (a passphrase, an answer) up to a newline, which is not kept,
  // straight into wiping storage; nothing when the stream ends before a character was read.
  static std::optional<SecureBytes> readLine(std::istream& in);

  size_t size() const { return storage_.size(); }
  bool empty() const { return storage_.empty(); }
  uint8_t* data() { return storage_.data(); }
  const uint8_t* data() const { return storage_.data(); }
  ByteView view() const { return ByteView(storage_); }
  void push_back(uint8_t byte) { storage_.push_back(byte); }
  void pop_back() { storage_.pop_back(); }
  void append(std::string_view text) { storage_.insert(storage_.end(), text.begin(), text.end()); }
  // The bytes as text, for parsers of secret text (base64 of a private key).
  std::string_view text() const {
    return {reinterpret_cast<const char*>(storage_.data()), storage_.size()};
  }

  friend bool operator==(const SecureBytes& a, const SecureBytes& b);

 private:
  std::vector<uint8_t, WipingAllocator<uint8_t>> storage_;
};

// Wipes a buffer that held secret bytes; use on temporaries that cannot be SecureBytes.
void secureWipe(void* data, size_t size);
void secureWipe(Bytes& bytes);

}  // namespace quorvane
