#include "Crypto/ChaCha20Poly1305.h"

#include "Base/Check.h"
#include "Crypto/AEADInternal.h"

namespace quorvane::crypto {
namespace {

const EVP_CIPHER* checkedCipher(ByteView key, ByteView nonce) {
  QUORVANE_CHECK(key.size() == kChaCha20Poly1305KeySize, "ChaCha20-Poly1305 keys are 32 bytes");
  QUORVANE_CHECK(nonce.size() == kChaCha20Poly1305NonceSize,
                 "ChaCha20-Poly1305 nonces are 12 bytes");
  return EVP_chacha20_poly1305();
}

}  // namespace

Bytes chaCha20Poly1305Seal(ByteView key, ByteView nonce, ByteView plaintext,
                           ByteView associatedData) {
  return aeadSeal(checkedCipher(key, nonce), key, nonce, plaintext, associatedData);
}

std::optional<Bytes> chaCha20Poly1305Open(ByteView key, ByteView nonce, ByteView sealed,
                                          ByteView associatedData) {
  return aeadOpen(checkedCipher(key, nonce), key, nonce, sealed, associatedData);
}

}  // namespace quorvane::crypto
