#include "Crypto/HPKE.h"

#include <array>

#include "Base/Check.h"
#include "Crypto/AESGCM.h"
#include "Crypto/ChaCha20Poly1305.h"
#include "Crypto/HKDF.h"

namespace quorvane::crypto {
namespace {

constexpr size_t kKeySize = 32;    // Nk of both AEADs
constexpr size_t kNonceSize = 12;  // Nn of both AEADs
constexpr size_t kHashSize = 32;   // Nh of HKDF-SHA256
constexpr uint8_t kModeBase = 0x00;

// "HPKE" || kem_id || kdf_id || aead_id.
std::array<uint8_t, 10> suiteID(uint16_t kemID, HPKEAEAD aead) {
  const auto aeadID = static_cast<uint16_t>(aead);
  return {'H',
          'P',
          'K',
          'E',
          static_cast<uint8_t>(kemID >> 8),
          static_cast<uint8_t>(kemID),
          static_cast<uint8_t>(kHPKEKDFHKDFSHA256 >> 8),
          static_cast<uint8_t>(kHPKEKDFHKDFSHA256),
          static_cast<uint8_t>(static_cast<unsigned>(aeadID) >> 8),
          static_cast<uint8_t>(aeadID)};
}

ByteView text(std::string_view label) {
  return ByteView(reinterpret_cast<const uint8_t*>(label.data()), label.size());
}

const ByteView kVersionLabel = text("HPKE-v1");

// LabeledExtract(salt, label, ikm) = Extract(salt, "HPKE-v1" || suite_id || label || ikm).
SecureBytes labeledExtract(ByteView suite, ByteView salt, std::string_view label, ByteView ikm) {
  return hkdfSHA256Extract(salt, {kVersionLabel, suite, text(label), ikm});
}

// LabeledExpand(prk, label, info, L) = Expand(prk, I2OSP(L, 2) || "HPKE-v1" || suite_id || label
// || info, L).
SecureBytes labeledExpand(ByteView suite, ByteView prk, std::string_view label, ByteView info,
                          size_t length) {
  const uint8_t encodedLength[2] = {static_cast<uint8_t>(length >> 8),
                                    static_cast<uint8_t>(length)};
  return hkdfSHA256Expand(prk, {ByteView(encodedLength), kVersionLabel, suite, text(label), info},
                          length);
}

// base_nonce XOR I2OSP(seq, 12).
std::array<uint8_t, kNonceSize> nonceFor(const SecureBytes& baseNonce, uint64_t sequence) {
  std::array<uint8_t, kNonceSize> nonce;
  std::copy(baseNonce.data(), baseNonce.data() + kNonceSize, nonce.begin());
  for (size_t i = 0; i < 8; ++i)
    nonce[kNonceSize - 1 - i] ^= static_cast<uint8_t>(sequence >> (8 * i));
  return nonce;
}

HPKESender senderFrom(XWingEncapsulation encapsulation, ByteView info, HPKEAEAD aead) {
  HPKEKeySchedule schedule =
      hpkeBaseKeySchedule(kHPKEKEMXWing, aead, encapsulation.sharedSecret.view(), info);
  return HPKESender{std::move(encapsulation.ciphertext),
                    HPKESenderContext(aead, std::move(schedule))};
}

}  // namespace

HPKEKeySchedule hpkeBaseKeySchedule(uint16_t kemID, HPKEAEAD aead, ByteView sharedSecret,
                                    ByteView info) {
  const auto suite = suiteID(kemID, aead);
  // key_schedule_context = mode || psk_id_hash || info_hash, with an empty psk_id in base mode.
  const SecureBytes pskIDHash = labeledExtract(suite, {}, "psk_id_hash", {});
  const SecureBytes infoHash = labeledExtract(suite, {}, "info_hash", info);
  Bytes context{kModeBase};
  context.insert(context.end(), pskIDHash.data(), pskIDHash.data() + pskIDHash.size());
  context.insert(context.end(), infoHash.data(), infoHash.data() + infoHash.size());

  const SecureBytes secret = labeledExtract(suite, sharedSecret, "secret", {});  // psk empty
  return HPKEKeySchedule{labeledExpand(suite, secret.view(), "key", context, kKeySize),
                         labeledExpand(suite, secret.view(), "base_nonce", context, kNonceSize),
                         labeledExpand(suite, secret.view(), "exp", context, kHashSize)};
}

HPKESenderContext::HPKESenderContext(HPKEAEAD aead, HPKEKeySchedule schedule)
    : aead_(aead), schedule_(std::move(schedule)) {
  QUORVANE_CHECK(schedule_.key.size() == kKeySize && schedule_.baseNonce.size() == kNonceSize,
                 "an HPKE context needs a 32-byte key and a 12-byte nonce");
}

Bytes HPKESenderContext::seal(ByteView associatedData, ByteView plaintext) {
  QUORVANE_CHECK(sequence_ != UINT64_MAX, "HPKE sequence numbers exhausted");
  const auto nonce = nonceFor(schedule_.baseNonce, sequence_);
  Bytes sealed = aead_ == HPKEAEAD::aes256GCM
                     ? aesGCMSeal(schedule_.key.view(), nonce, plaintext, associatedData)
                     : chaCha20Poly1305Seal(schedule_.key.view(), nonce, plaintext, associatedData);
  ++sequence_;
  return sealed;
}

HPKEReceiverContext::HPKEReceiverContext(HPKEAEAD aead, HPKEKeySchedule schedule)
    : aead_(aead), schedule_(std::move(schedule)) {
  QUORVANE_CHECK(schedule_.key.size() == kKeySize && schedule_.baseNonce.size() == kNonceSize,
                 "an HPKE context needs a 32-byte key and a 12-byte nonce");
}

std::optional<Bytes> HPKEReceiverContext::open(ByteView associatedData, ByteView ciphertext) {
  if (sequence_ == UINT64_MAX) return std::nullopt;
  const auto nonce = nonceFor(schedule_.baseNonce, sequence_);
  std::optional<Bytes> plaintext =
      aead_ == HPKEAEAD::aes256GCM
          ? aesGCMOpen(schedule_.key.view(), nonce, ciphertext, associatedData)
          : chaCha20Poly1305Open(schedule_.key.view(), nonce, ciphertext, associatedData);
  if (plaintext) ++sequence_;
  return plaintext;
}

std::optional<HPKESender> hpkeSetupBaseSender(const XWingPublicKey& recipient, ByteView info,
                                              HPKEAEAD aead) {
  std::optional<XWingEncapsulation> encapsulation = recipient.encapsulate();
  if (!encapsulation) return std::nullopt;
  return senderFrom(std::move(*encapsulation), info, aead);
}

std::optional<HPKESender> hpkeSetupBaseSender(const XWingPublicKey& recipient, ByteView info,
                                              ByteView encapsulationSeed, HPKEAEAD aead) {
  std::optional<XWingEncapsulation> encapsulation = recipient.encapsulate(encapsulationSeed);
  if (!encapsulation) return std::nullopt;
  return senderFrom(std::move(*encapsulation), info, aead);
}

std::optional<HPKEReceiverContext> hpkeSetupBaseReceiver(const XWingPrivateKey& recipient,
                                                         ByteView encapsulatedKey, ByteView info,
                                                         HPKEAEAD aead) {
  std::optional<SecureBytes> sharedSecret = recipient.decapsulate(encapsulatedKey);
  if (!sharedSecret) return std::nullopt;
  return HPKEReceiverContext(aead,
                             hpkeBaseKeySchedule(kHPKEKEMXWing, aead, sharedSecret->view(), info));
}

}  // namespace quorvane::crypto
