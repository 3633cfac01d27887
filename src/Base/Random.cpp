#include "Base/Random.h"

#include <openssl/rand.h>

#include <climits>

#include "Base/CryptoError.h"

namespace quorvane::crypto {

void fillRandom(std::span<uint8_t> out) {
  // RAND_bytes takes an int count; fill larger buffers in pieces.
  while (!out.empty()) {
    size_t chunk = std::min<size_t>(out.size(), INT_MAX);
    if (RAND_bytes(out.data(), static_cast<int>(chunk)) != 1)
      throw CryptoError::libraryFailure("RAND_bytes");
    out = out.subspan(chunk);
  }
}

Bytes randomBytes(size_t count) {
  Bytes bytes(count);
  fillRandom(bytes);
  return bytes;
}

}  // namespace quorvane::crypto
