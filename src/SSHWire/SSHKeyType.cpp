#include "SSHWire/SSHKeyType.h"

namespace quorvane {

std::string_view keyTypeName(SSHKeyType type) {
  switch (type) {
    case SSHKeyType::ed25519: return "ssh-ed25519";
    case SSHKeyType::ecdsaP256: return "ecdsa-sha2-nistp256";
    case SSHKeyType::ecdsaP384: return "ecdsa-sha2-nistp384";
    case SSHKeyType::ecdsaP521: return "ecdsa-sha2-nistp521";
    case SSHKeyType::rsa: return "ssh-rsa";
    case SSHKeyType::mldsa44Ed25519: return "ssh-mldsa44-ed25519";
  }
  return "";
}

std::optional<std::string_view> curveIdentifier(SSHKeyType type) {
  switch (type) {
    case SSHKeyType::ecdsaP256: return "nistp256";
    case SSHKeyType::ecdsaP384: return "nistp384";
    case SSHKeyType::ecdsaP521: return "nistp521";
    default: return std::nullopt;
  }
}

size_t curveFieldLength(SSHKeyType type) {
  switch (type) {
    case SSHKeyType::ecdsaP256: return 32;
    case SSHKeyType::ecdsaP384: return 48;
    case SSHKeyType::ecdsaP521: return 66;
    default: return 0;
  }
}

std::optional<SSHKeyType> keyTypeNamed(std::string_view name) {
  for (SSHKeyType type : kAllSSHKeyTypes)
    if (keyTypeName(type) == name) return type;
  return std::nullopt;
}

}  // namespace quorvane
