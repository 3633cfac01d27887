#pragma once

// Turning private key numbers read from a file into keys, for the readers of the key importer.
#include <string>

#include "Base/Bytes.h"
#include "KeyImport/ParsedPrivateKey.h"
#include "KeyStore/ImportedKey.h"

namespace quorvane {

// The Ed25519 key of a 32-byte seed. Throws malformed for another length.
ImportedKey ed25519KeyFromSeed(ByteView seed);

// The ECDSA key of a private scalar given as a big-endian magnitude of any length; it is
// left-padded to the curve's size. Throws malformed for a scalar longer than the curve's size, 0,
// or not below the order.
ImportedKey ecdsaKeyFromScalar(KeyAlgorithm algorithm, ByteView scalar);

// The key with its comment and the public key derived from it.
ParsedPrivateKey parsedKey(ImportedKey key, std::string comment);

}  // namespace quorvane
