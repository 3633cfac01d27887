#include "Crypto/XWing.h"

#include <array>

#include "Base/Check.h"
#include "Base/Random.h"
#include "Crypto/MLKEM768.h"
#include "Crypto/SHA3.h"

namespace quorvane::crypto {
namespace {

// "\./" "/^\", the last input of the combiner.
constexpr uint8_t kLabel[] = {0x5c, 0x2e, 0x2f, 0x2f, 0x5e, 0x5c};

// SHA3-256(ss_M || ss_X || ct_X || pk_X || label).
SecureBytes combine(ByteView mlkemSecret, ByteView x25519Secret, ByteView x25519Ciphertext,
                    ByteView x25519PublicKey) {
  SecureBytes secret(kXWingSharedSecretSize);
  sha3(SHA3Function::sha3_256,
       {mlkemSecret, x25519Secret, x25519Ciphertext, x25519PublicKey, ByteView(kLabel)},
       std::span(secret.data(), secret.size()));
  return secret;
}

}  // namespace

std::optional<XWingPublicKey> XWingPublicKey::fromBytes(ByteView bytes) {
  if (bytes.size() != kXWingPublicKeySize ||
      !mlkem768CheckEncapsulationKey(bytes.first(kMLKEM768EncapsulationKeySize)))
    return std::nullopt;
  return XWingPublicKey(Bytes(bytes.begin(), bytes.end()));
}

std::optional<XWingEncapsulation> XWingPublicKey::encapsulate() const {
  SecureBytes seed(kXWingEncapsulationSeedSize);
  fillRandom(std::span(seed.data(), seed.size()));
  return encapsulate(seed.view());
}

std::optional<XWingEncapsulation> XWingPublicKey::encapsulate(ByteView seed) const {
  QUORVANE_CHECK(seed.size() == kXWingEncapsulationSeedSize,
                 "X-Wing encapsulation seeds are 64 bytes");
  const ByteView mlkemKey = ByteView(bytes_).first(kMLKEM768EncapsulationKeySize);
  const ByteView x25519Key = ByteView(bytes_).subspan(kMLKEM768EncapsulationKeySize);
  const X25519PrivateKey ephemeral(seed.subspan(kMLKEMMessageSize));
  std::optional<SecureBytes> x25519Secret = ephemeral.sharedSecret(x25519Key);
  if (!x25519Secret) return std::nullopt;
  std::optional<MLKEM768Encapsulation> mlkem =
      mlkem768EncapsulateDerand(mlkemKey, seed.first(kMLKEMMessageSize));
  QUORVANE_CHECK(mlkem.has_value(), "the ML-KEM key was checked on construction");
  XWingEncapsulation result;
  result.sharedSecret =
      combine(mlkem->sharedSecret.view(), x25519Secret->view(), ephemeral.publicKey(), x25519Key);
  result.ciphertext = std::move(mlkem->ciphertext);
  result.ciphertext.insert(result.ciphertext.end(), ephemeral.publicKey().begin(),
                           ephemeral.publicKey().end());
  return result;
}

XWingPrivateKey::XWingPrivateKey(SecureBytes seed, SecureBytes mlkemKey, X25519PrivateKey x25519Key,
                                 XWingPublicKey publicKey)
    : seed_(std::move(seed)),
      mlkemDecapsulationKey_(std::move(mlkemKey)),
      x25519Key_(std::move(x25519Key)),
      publicKey_(std::move(publicKey)) {}

XWingPrivateKey XWingPrivateKey::generate() {
  SecureBytes seed(kXWingSeedSize);
  fillRandom(std::span(seed.data(), seed.size()));
  return *fromSeed(seed.view());
}

std::optional<XWingPrivateKey> XWingPrivateKey::fromSeed(ByteView seed) {
  if (seed.size() != kXWingSeedSize) return std::nullopt;
  // expandDecapsulationKey: SHAKE256(seed) to 96 bytes = ML-KEM d || z || X25519 private key.
  SecureBytes expanded(96);
  sha3(SHA3Function::shake256, {seed}, std::span(expanded.data(), expanded.size()));
  MLKEM768KeyPair mlkem = *mlkem768KeyPairFromSeed(expanded.view().first(kMLKEMSeedSize));
  X25519PrivateKey x25519(expanded.view().subspan(kMLKEMSeedSize));
  Bytes publicBytes = std::move(mlkem.encapsulationKey);
  publicBytes.insert(publicBytes.end(), x25519.publicKey().begin(), x25519.publicKey().end());
  return XWingPrivateKey(SecureBytes(seed), std::move(mlkem.decapsulationKey), std::move(x25519),
                         XWingPublicKey(std::move(publicBytes)));
}

std::optional<SecureBytes> XWingPrivateKey::decapsulate(ByteView ciphertext) const {
  if (ciphertext.size() != kXWingCiphertextSize) return std::nullopt;
  const ByteView mlkemCiphertext = ciphertext.first(kMLKEM768CiphertextSize);
  const ByteView x25519Ciphertext = ciphertext.subspan(kMLKEM768CiphertextSize);
  std::optional<SecureBytes> x25519Secret = x25519Key_.sharedSecret(x25519Ciphertext);
  if (!x25519Secret) return std::nullopt;
  std::optional<SecureBytes> mlkemSecret =
      mlkem768Decapsulate(mlkemDecapsulationKey_.view(), mlkemCiphertext);
  QUORVANE_CHECK(mlkemSecret.has_value(), "sizes were checked and the key is well formed");
  return combine(mlkemSecret->view(), x25519Secret->view(), x25519Ciphertext,
                 ByteView(publicKey_.bytes()).subspan(kMLKEM768EncapsulationKeySize));
}

}  // namespace quorvane::crypto
