#pragma once

#include <cstdint>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class KeychainItemErrorKind {
  badMagic,
  unsupportedVersion,
  lengthTooLarge,
  truncated,
  trailingBytes
};

// The number a kind carries (version, length or count); 0 for badMagic and truncated.
struct KeychainItemErrorPayload {
  uint64_t amount = 0;
  friend bool operator==(const KeychainItemErrorPayload&,
                         const KeychainItemErrorPayload&) = default;
};

// Why the bytes of a keychain item file are not an item. Each kind carries only its own payload:
//   badMagic                 the file does not begin with the item file's magic
//   unsupportedVersion(v)    a version this program does not read; `amount` is v
//   lengthTooLarge(length)   a field's length over its limit; `amount` is the length as read
//   truncated                fewer bytes left than the next field needs
//   trailingBytes(count)     `count` bytes after the last field
class KeychainItemError
    : public KindedError<KeychainItemError, KeychainItemErrorKind, KeychainItemErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 5> kKindNames{"KeychainItemError",
                                                 {{{Kind::badMagic, "badMagic"},
                                                   {Kind::unsupportedVersion, "unsupportedVersion"},
                                                   {Kind::lengthTooLarge, "lengthTooLarge"},
                                                   {Kind::truncated, "truncated"},
                                                   {Kind::trailingBytes, "trailingBytes"}}}};

  static KeychainItemError badMagic();
  static KeychainItemError unsupportedVersion(uint8_t version);
  static KeychainItemError lengthTooLarge(uint64_t length);
  static KeychainItemError truncated();
  static KeychainItemError trailingBytes(uint64_t count);

  uint64_t amount() const { return payload().amount; }

 private:
  KeychainItemError(Kind kind, uint64_t amount);
};

}  // namespace quorvane
