#pragma once

#include "Base/Bytes.h"
#include "Crypto/Hash.h"

namespace quorvane::crypto {

enum class EllipticCurve { p256, p384, p521 };

// RSA moduli outside this range are refused by verification (1024 is the smallest size that
// OpenSSH still accepts for host keys; the upper bound keeps a hostile key from costing much).
inline constexpr int kMinimumRSAVerifyBits = 1024;
inline constexpr int kMaximumRSAVerifyBits = 16384;

// Each function answers whether `signature` is a valid signature over `message` by the public key
// given as raw SSH key material. Malformed keys or signatures verify as false; only a failure of
// OpenSSL itself throws CryptoError.

// Ed25519 (RFC 8032): a 32-byte public key and a 64-byte signature.
bool verifyEd25519(ByteView publicKey, ByteView message, ByteView signature);

// ECDSA over `curve` with the curve's SSH hash (SHA-256, SHA-384, SHA-512 for P-256, P-384,
// P-521). `point` is the SEC1 encoding of Q; r and s are non-negative big-endian integers.
bool verifyECDSA(EllipticCurve curve, ByteView point, ByteView message, ByteView r, ByteView s);

// RSASSA-PKCS1-v1_5 with `hash`; `e` and `n` are non-negative big-endian integers.
bool verifyRSA(ByteView e, ByteView n, HashAlgorithm hash, ByteView message, ByteView signature);

}  // namespace quorvane::crypto
