#pragma once

#include "Base/Bytes.h"

namespace quorvane {

// A P-256 signing key of the approval protocol, wherever it lives (in memory, or in hardware that
// never lets it out). Implementations are immutable after construction and safe to share between
// threads.
class QAPSigner {
 public:
  virtual ~QAPSigner() = default;

  // The public key in X9.63 uncompressed form (65 bytes).
  virtual Bytes publicKey() const = 0;

  // ECDSA P-256 with SHA-256 over `data`: the 64-byte raw form r || s (each 32 bytes, big-endian,
  // left-padded with zeros). Throws the implementation's error when the key cannot sign.
  virtual Bytes sign(ByteView data) const = 0;
};

}  // namespace quorvane
