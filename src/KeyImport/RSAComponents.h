#pragma once

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "KeyImport/ImportLimits.h"
#include "KeyStore/ImportedKey.h"

namespace quorvane {

// The numbers of an RSA private key (RFC 8017 section 3.2, two primes), each a big-endian unsigned
// magnitude: modulus n, public exponent e, private exponent d, primes p and q, CRT exponents
// dP = d mod (p-1) and dQ = d mod (q-1), and CRT coefficient qInv = q^-1 mod p.
struct RSAComponents {
  Bytes n, e;
  SecureBytes d, p, q, dP, dQ, qInv;

  // From the numbers that OpenSSH files hold (n, e, d, iqmp, p, q), computing dP and dQ.
  // Throws KeyImportError::inconsistentKey when p or q is below 2.
  static RSAComponents fromOpenSSH(ByteView n, ByteView e, ByteView d, ByteView iqmp, ByteView p,
                                   ByteView q);

  // The PKCS#1 RSAPrivateKey (version 0) that holds these numbers, DER encoded.
  SecureBytes pkcs1DER() const;
};

// The bit length of a big-endian magnitude.
int bitLength(ByteView magnitude);

// The size rule of imported RSA keys: over `limits.maximumRSABits`, unsupportedKeyType("ssh-rsa
// with N bits"); under kMinimumRSAImportBits, rsaKeyTooSmall(N).
void checkRSAKeySize(ByteView n, const ImportLimits& limits);

// The key for these numbers after the size rule and a consistency check: n must be p * q, and
// the key must sign the text "quorvane import consistency check" (PKCS#1 v1.5, SHA-256) so that
// the signature verifies under (n, e). Throws KeyImportError: the size rule's errors;
// inconsistentKey when the check fails; malformed when the numbers make no key at all.
ImportedKey importRSAKey(const RSAComponents& components, const ImportLimits& limits);

}  // namespace quorvane
