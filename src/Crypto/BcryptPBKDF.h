#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto {

// Limits of bcrypt_pbkdf's arguments, as the OpenBSD implementation sets them.
inline constexpr size_t kBcryptPBKDFMaximumSalt = 1 << 20;
inline constexpr size_t kBcryptPBKDFMaximumOutput = 1024;

// bcrypt_pbkdf, the key derivation of OpenSSH private key files (OpenBSD, 2013): PBKDF2-like
// rounds over a hash that keys bcrypt's expensive Blowfish schedule with the SHA-512 digests of
// password and salt and encrypts "OxychromaticBlowfishSwatDynamite" 64 times. Output blocks of 32
// bytes are interleaved byte by byte into the result.
//
// Nothing when an argument is out of range: rounds below 1, an empty password or salt, a salt over
// kBcryptPBKDFMaximumSalt bytes, an output length of 0 or over kBcryptPBKDFMaximumOutput.
// The work is `rounds` times the number of 32-byte blocks needed; callers bound `rounds`.
std::optional<SecureBytes> bcryptPBKDF(ByteView password, ByteView salt, uint32_t rounds,
                                       size_t outputLength);

}  // namespace quorvane::crypto
