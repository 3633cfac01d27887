#pragma once

#include <cstddef>
#include <cstdint>

namespace quorvane {

// The smallest RSA modulus imported, in bits; fixed, not a limit that callers choose.
inline constexpr int kMinimumRSAImportBits = 2048;

// Bounds on what one imported file can make the importer read and compute. The importer's entry
// point uses `standard()`; other values exist for tests and fuzzing, which must keep derivations
// cheap.
struct ImportLimits {
  size_t maximumTextBytes;           // UTF-8 bytes of the file text
  uint32_t maximumBcryptRounds;      // OpenSSH key derivation
  uint32_t maximumPBKDF2Iterations;  // PKCS#8 key derivation
  int maximumRSABits;                // RSA modulus size

  static constexpr ImportLimits standard() { return {1048576, 1024, 10000000, 8192}; }

  friend bool operator==(const ImportLimits&, const ImportLimits&) = default;
};

}  // namespace quorvane
