#include "KeyImport/KeyImportError.h"

#include <utility>

namespace quorvane {
namespace {

std::string description(KeyImportError::Kind kind, const KeyImportErrorPayload& payload) {
  std::string text(KeyImportError::kKindNames.name(kind));
  if (kind == KeyImportError::Kind::rsaKeyTooSmall)
    return text + "(" + std::to_string(payload.bits) + ")";
  if (!payload.detail.empty()) return text + "(" + payload.detail + ")";
  return text;
}

}  // namespace

KeyImportError::KeyImportError(Kind kind, KeyImportErrorPayload payload)
    : KindedError(kind, payload, description(kind, payload)) {}

KeyImportError KeyImportError::unsupportedFormat(std::string found) {
  return {Kind::unsupportedFormat, {std::move(found), 0}};
}
KeyImportError KeyImportError::unsupportedCipher(std::string name) {
  return {Kind::unsupportedCipher, {std::move(name), 0}};
}
KeyImportError KeyImportError::unsupportedKeyType(std::string type) {
  return {Kind::unsupportedKeyType, {std::move(type), 0}};
}
KeyImportError KeyImportError::rsaKeyTooSmall(int bits) {
  return {Kind::rsaKeyTooSmall, {{}, bits}};
}
KeyImportError KeyImportError::passphraseRequired() { return {Kind::passphraseRequired, {}}; }
KeyImportError KeyImportError::wrongPassphrase() { return {Kind::wrongPassphrase, {}}; }
KeyImportError KeyImportError::malformed() { return {Kind::malformed, {}}; }
KeyImportError KeyImportError::multipleKeys() { return {Kind::multipleKeys, {}}; }
KeyImportError KeyImportError::publicKeyOnly() { return {Kind::publicKeyOnly, {}}; }
KeyImportError KeyImportError::inconsistentKey() { return {Kind::inconsistentKey, {}}; }

}  // namespace quorvane
