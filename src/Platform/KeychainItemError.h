#pragma once

#include <cstdint>
#include <ostream>
#include <stdexcept>

namespace quorvane {

// Why the bytes of a keychain item file are not an item. Each kind carries only its own payload:
//   badMagic                 the file does not begin with the item file's magic
//   unsupportedVersion(v)    a version this program does not read; `amount` is v
//   lengthTooLarge(length)   a field's length over its limit; `amount` is the length as read
//   truncated                fewer bytes left than the next field needs
//   trailingBytes(count)     `count` bytes after the last field
class KeychainItemError : public std::runtime_error {
 public:
  enum class Kind { badMagic, unsupportedVersion, lengthTooLarge, truncated, trailingBytes };

  static KeychainItemError badMagic();
  static KeychainItemError unsupportedVersion(uint8_t version);
  static KeychainItemError lengthTooLarge(uint64_t length);
  static KeychainItemError truncated();
  static KeychainItemError trailingBytes(uint64_t count);

  Kind kind() const { return kind_; }
  uint64_t amount() const { return amount_; }

  friend bool operator==(const KeychainItemError& a, const KeychainItemError& b) {
    return a.kind_ == b.kind_ && a.amount_ == b.amount_;
  }
  friend std::ostream& operator<<(std::ostream& out, const KeychainItemError& error) {
    return out << error.what();
  }

 private:
  KeychainItemError(Kind kind, uint64_t amount);
  Kind kind_;
  uint64_t amount_;
};

}  // namespace quorvane
