#include "KeyImport/KeyBuilding.h"

#include <algorithm>

#include "KeyImport/KeyImportError.h"

namespace quorvane {

ImportedKey ed25519KeyFromSeed(ByteView seed) {
  auto key = ImportedKey::fromSecret(KeyAlgorithm::ed25519, seed);
  if (!key) throw KeyImportError::malformed();
  return *key;
}

ImportedKey ecdsaKeyFromScalar(KeyAlgorithm algorithm, ByteView scalar) {
  while (!scalar.empty() && scalar[0] == 0) scalar = scalar.subspan(1);
  const size_t size = curveFieldLength(sshKeyType(algorithm));
  if (scalar.size() > size) throw KeyImportError::malformed();
  SecureBytes padded(size);
  std::copy(scalar.begin(), scalar.end(), padded.data() + (size - scalar.size()));
  auto key = ImportedKey::fromSecret(algorithm, padded.view());
  if (!key) throw KeyImportError::malformed();
  return *key;
}

ParsedPrivateKey parsedKey(ImportedKey key, std::string comment) {
  SSHPublicKey publicKey = key.publicKey();
  return ParsedPrivateKey{std::move(key), std::move(comment), std::move(publicKey)};
}

}  // namespace quorvane
