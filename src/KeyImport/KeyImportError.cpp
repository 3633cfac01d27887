#include "KeyImport/KeyImportError.h"

namespace quorvane {
namespace {

std::string description(KeyImportError::Kind kind, const std::string& detail, int bits) {
  std::string text = kindName(kind);
  if (kind == KeyImportError::Kind::rsaKeyTooSmall) return text + "(" + std::to_string(bits) + ")";
  if (!detail.empty()) return text + "(" + detail + ")";
  return text;
}

}  // namespace

KeyImportError::KeyImportError(Kind kind, std::string detail, int bits)
    : std::runtime_error(description(kind, detail, bits)),
      kind_(kind),
      detail_(std::move(detail)),
      bits_(bits) {}

KeyImportError KeyImportError::unsupportedFormat(std::string found) {
  return {Kind::unsupportedFormat, std::move(found), 0};
}
KeyImportError KeyImportError::unsupportedCipher(std::string name) {
  return {Kind::unsupportedCipher, std::move(name), 0};
}
KeyImportError KeyImportError::unsupportedKeyType(std::string type) {
  return {Kind::unsupportedKeyType, std::move(type), 0};
}
KeyImportError KeyImportError::rsaKeyTooSmall(int bits) { return {Kind::rsaKeyTooSmall, {}, bits}; }
KeyImportError KeyImportError::passphraseRequired() { return {Kind::passphraseRequired, {}, 0}; }
KeyImportError KeyImportError::wrongPassphrase() { return {Kind::wrongPassphrase, {}, 0}; }
KeyImportError KeyImportError::malformed() { return {Kind::malformed, {}, 0}; }
KeyImportError KeyImportError::multipleKeys() { return {Kind::multipleKeys, {}, 0}; }
KeyImportError KeyImportError::publicKeyOnly() { return {Kind::publicKeyOnly, {}, 0}; }
KeyImportError KeyImportError::inconsistentKey() { return {Kind::inconsistentKey, {}, 0}; }

const char* kindName(KeyImportError::Kind kind) {
  switch (kind) {
    case KeyImportError::Kind::unsupportedFormat: return "unsupportedFormat";
    case KeyImportError::Kind::unsupportedCipher: return "unsupportedCipher";
    case KeyImportError::Kind::unsupportedKeyType: return "unsupportedKeyType";
    case KeyImportError::Kind::rsaKeyTooSmall: return "rsaKeyTooSmall";
    case KeyImportError::Kind::passphraseRequired: return "passphraseRequired";
    case KeyImportError::Kind::wrongPassphrase: return "wrongPassphrase";
    case KeyImportError::Kind::malformed: return "malformed";
    case KeyImportError::Kind::multipleKeys: return "multipleKeys";
    case KeyImportError::Kind::publicKeyOnly: return "publicKeyOnly";
    case KeyImportError::Kind::inconsistentKey: return "inconsistentKey";
  }
  return "unknown";
}

}  // namespace quorvane
