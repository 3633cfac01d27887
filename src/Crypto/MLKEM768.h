#pragma once

#include <cstddef>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto {

// ML-KEM-768 (FIPS 203). Secret-dependent work runs in constant time. Keys and ciphertexts are the
// standard's byte strings; the decapsulation key is the expanded 2400-byte form.
inline constexpr size_t kMLKEM768EncapsulationKeySize = 1184;
inline constexpr size_t kMLKEM768DecapsulationKeySize = 2400;
inline constexpr size_t kMLKEM768CiphertextSize = 1088;
inline constexpr size_t kMLKEMSharedSecretSize = 32;
// The key generation seed d || z (the standard's seed form of a decapsulation key).
inline constexpr size_t kMLKEMSeedSize = 64;
// The encapsulation message m.
inline constexpr size_t kMLKEMMessageSize = 32;

struct MLKEM768KeyPair {
  Bytes encapsulationKey;
  SecureBytes decapsulationKey;
};

struct MLKEM768Encapsulation {
  Bytes ciphertext;
  SecureBytes sharedSecret;
};

// A fresh key pair from OpenSSL's generator.
MLKEM768KeyPair mlkem768GenerateKeyPair();

// ML-KEM.KeyGen_internal(d, z) of the 64-byte seed d || z; nothing for a seed of another size.
std::optional<MLKEM768KeyPair> mlkem768KeyPairFromSeed(ByteView seed);

// Encapsulation to `encapsulationKey` with fresh randomness; nothing when the key fails the input
// checks (wrong size, or a coefficient not reduced modulo q).
std::optional<MLKEM768Encapsulation> mlkem768Encapsulate(ByteView encapsulationKey);

// ML-KEM.Encaps_internal(ek, m) with the same checks; deterministic, for known-answer tests.
// REQUIRES: m is 32 bytes.
std::optional<MLKEM768Encapsulation> mlkem768EncapsulateDerand(ByteView encapsulationKey,
                                                               ByteView m);

// The shared secret of `ciphertext`. A ciphertext that was not made for this key gives the
// implicit-rejection secret, never an error. Nothing when the input checks fail: a ciphertext or
// key of the wrong size, or a key whose embedded hash does not match its encapsulation key.
std::optional<SecureBytes> mlkem768Decapsulate(ByteView decapsulationKey, ByteView ciphertext);

// The input checks on their own (FIPS 203 sections 7.2 and 7.3).
bool mlkem768CheckEncapsulationKey(ByteView encapsulationKey);
bool mlkem768CheckDecapsulationKey(ByteView decapsulationKey);

}  // namespace quorvane::crypto
