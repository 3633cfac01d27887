#include "KeyStore/KeyAlgorithm.h"

#include <array>
#include <string>

namespace quorvane {

namespace {

constexpr std::array kAllKeyAlgorithms = {KeyAlgorithm::ecdsaP256, KeyAlgorithm::ecdsaP384,
                                          KeyAlgorithm::ed25519, KeyAlgorithm::rsa};

}  // namespace

SSHKeyType sshKeyType(KeyAlgorithm algorithm) {
  switch (algorithm) {
    case KeyAlgorithm::ecdsaP256: return SSHKeyType::ecdsaP256;
    case KeyAlgorithm::ecdsaP384: return SSHKeyType::ecdsaP384;
    case KeyAlgorithm::ed25519: return SSHKeyType::ed25519;
    case KeyAlgorithm::rsa: return SSHKeyType::rsa;
  }
  return SSHKeyType::rsa;
}

std::string_view rawValue(KeyAlgorithm algorithm) { return keyTypeName(sshKeyType(algorithm)); }

JSON toJSON(KeyAlgorithm algorithm) { return std::string(rawValue(algorithm)); }

KeyAlgorithm decodeKeyAlgorithm(const JSONReader& reader) {
  std::string text = reader.string();
  for (KeyAlgorithm algorithm : kAllKeyAlgorithms)
    if (rawValue(algorithm) == text) return algorithm;
  reader.fail("Cannot initialize KeyAlgorithm from invalid String value " + text);
}

}  // namespace quorvane
