#include "Platform/KeychainItemError.h"

#include <string>

namespace quorvane {

namespace {

std::string describe(KeychainItemError::Kind kind, uint64_t amount) {
  switch (kind) {
    case KeychainItemError::Kind::badMagic: return "not a keychain item file";
    case KeychainItemError::Kind::unsupportedVersion:
      return "unsupported keychain item version " + std::to_string(amount);
    case KeychainItemError::Kind::lengthTooLarge:
      return "keychain item field too long: " + std::to_string(amount);
    case KeychainItemError::Kind::truncated: return "keychain item file truncated";
    case KeychainItemError::Kind::trailingBytes:
      return std::to_string(amount) + " trailing bytes after the keychain item";
  }
  return "keychain item error";
}

}  // namespace

KeychainItemError::KeychainItemError(Kind kind, uint64_t amount)
    : KindedError(kind, {amount}, describe(kind, amount)) {}

KeychainItemError KeychainItemError::badMagic() { return {Kind::badMagic, 0}; }
KeychainItemError KeychainItemError::unsupportedVersion(uint8_t version) {
  return {Kind::unsupportedVersion, version};
}
KeychainItemError KeychainItemError::lengthTooLarge(uint64_t length) {
  return {Kind::lengthTooLarge, length};
}
KeychainItemError KeychainItemError::truncated() { return {Kind::truncated, 0}; }
KeychainItemError KeychainItemError::trailingBytes(uint64_t count) {
  return {Kind::trailingBytes, count};
}

}  // namespace quorvane
