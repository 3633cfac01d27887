#pragma once

#include <cstdint>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "Crypto/XWing.h"

namespace quorvane::crypto {

// HPKE (RFC 9180) in base mode with the KEM X-Wing and the KDF HKDF-SHA256; the AEAD is
// AES-256-GCM unless a caller picks ChaCha20-Poly1305. X-Wing's shared secret is HPKE's
// shared_secret as it is, and the encapsulated key is the X-Wing ciphertext.
inline constexpr uint16_t kHPKEKEMXWing = 0x647a;
inline constexpr uint16_t kHPKEKDFHKDFSHA256 = 0x0001;

enum class HPKEAEAD : uint16_t { aes256GCM = 0x0002, chaCha20Poly1305 = 0x0003 };

// What the key schedule derives: the AEAD key (32 bytes), the base nonce (12) and the exporter
// secret (32).
struct HPKEKeySchedule {
  SecureBytes key;
  SecureBytes baseNonce;
  SecureBytes exporterSecret;
};

// The base-mode key schedule for HKDF-SHA256 with the suite's KEM and AEAD identifiers. Any KEM
// identifier is accepted, so that the schedule can be checked against vectors of other KEMs.
HPKEKeySchedule hpkeBaseKeySchedule(uint16_t kemID, HPKEAEAD aead, ByteView sharedSecret,
                                    ByteView info);

// The sender's half of an encryption context: seals messages in order, numbering them from 0.
class HPKESenderContext {
 public:
  HPKESenderContext(HPKEAEAD aead, HPKEKeySchedule schedule);
  // ciphertext || tag under the next sequence number. A context that has sealed 2^64 - 1 messages
  // stops the process rather than reuse a nonce.
  Bytes seal(ByteView associatedData, ByteView plaintext);
  uint64_t sequenceNumber() const { return sequence_; }

 private:
  HPKEAEAD aead_;
  HPKEKeySchedule schedule_;
  uint64_t sequence_ = 0;
};

// The receiver's half: opens messages in the order they were sealed. A message that does not
// open leaves the sequence number where it was.
class HPKEReceiverContext {
 public:
  HPKEReceiverContext(HPKEAEAD aead, HPKEKeySchedule schedule);
  // The plaintext, or nothing when the ciphertext does not authenticate under the next number.
  std::optional<Bytes> open(ByteView associatedData, ByteView ciphertext);
  uint64_t sequenceNumber() const { return sequence_; }

 private:
  HPKEAEAD aead_;
  HPKEKeySchedule schedule_;
  uint64_t sequence_ = 0;
};

struct HPKESender {
  Bytes encapsulatedKey;  // 1120 bytes, for the receiver
  HPKESenderContext context;
};

// SetupBaseS with fresh randomness; nothing when X-Wing refuses the recipient key.
std::optional<HPKESender> hpkeSetupBaseSender(const XWingPublicKey& recipient, ByteView info,
                                              HPKEAEAD aead = HPKEAEAD::aes256GCM);

// SetupBaseS with X-Wing's 64-byte encapsulation seed given, for known-answer tests.
std::optional<HPKESender> hpkeSetupBaseSender(const XWingPublicKey& recipient, ByteView info,
                                              ByteView encapsulationSeed, HPKEAEAD aead);

// SetupBaseR; nothing when the encapsulated key cannot be decapsulated (wrong size, or an X25519
// part of small order). A key that was made for someone else sets up a context that opens nothing.
std::optional<HPKEReceiverContext> hpkeSetupBaseReceiver(const XWingPrivateKey& recipient,
                                                         ByteView encapsulatedKey, ByteView info,
                                                         HPKEAEAD aead = HPKEAEAD::aes256GCM);

}  // namespace quorvane::crypto
