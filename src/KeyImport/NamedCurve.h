#pragma once

#include <optional>

#include "Base/Bytes.h"
#include "KeyImport/DERReader.h"
#include "KeyStore/KeyAlgorithm.h"

namespace quorvane {

// The domain parameters of a prime curve whose keys are imported, as big-endian bytes: field
// prime p, coefficients a and b, base point g (uncompressed: 04 || X || Y) and order n
// (SEC 2 version 2, section 2.4; FIPS 186-4 appendix D.1.2).
struct NamedCurve {
  KeyAlgorithm algorithm;  // ecdsaP256 or ecdsaP384
  Bytes p, a, b, g, n;

  static const NamedCurve& p256();
  static const NamedCurve& p384();
};

// The curve of EC parameters (RFC 5480 ECParameters, SEC 1 C.2): a named curve, or explicit
// parameters that equal P-256 or P-384 exactly. Throws KeyImportError: unsupportedKeyType
// "ecdsa-sha2-nistp521" for P-521, "elliptic curve over a binary field" for explicit parameters
// over a field that is not prime, "unknown elliptic curve" for any other curve; malformed for
// broken structure.
KeyAlgorithm curveOfParameters(ByteView parametersElement);

// Whether `encoded` (SEC 1 point, uncompressed or compressed) is the point `uncompressed`.
bool isSamePoint(ByteView encoded, ByteView uncompressed);

}  // namespace quorvane
