#pragma once

#include <cstddef>
#include <string_view>

#include "ApprovalProto/DeviceIdentity.h"
#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/QAPSigner.h"
#include "Base/Bytes.h"

namespace quorvane {

// Each length-prefixed field of a sealed box, and of the signed plaintext inside it, is at most
// this long when read, so that a hostile relay cannot make a reader allocate more per field.
inline constexpr size_t kSealedFieldLimit = 262144;

// Signs, then encrypts to the recipient. The signature is over UTF-8(label) || plaintext; the
// signed inner part string(plaintext) || string(signature) is sealed with HPKE (X-Wing,
// HKDF-SHA256, AES-256-GCM, base mode, empty associated data) under the info
//   UTF-8(label) || senderHash || SHA-256(recipient.signingKey).
// Result: string(encapsulated key) || string(ciphertext), with SSH wire strings.
//
// `senderHash` is the sender's identity hash. A recipient whose kemKey is not a usable X-Wing key
// gives QAPFailure malformed; the signer's and OpenSSL's errors pass through unchanged.
Bytes sealMessage(ByteView plaintext, std::string_view label, const QAPSigner& signer,
                  ByteView senderHash, const DeviceIdentity& recipient);

// The inverse of sealMessage for a box that `senderSigningKey` sent to `receiver`: the signed
// plaintext. Fails with QAPFailure:
//   malformed         the box or its inner part is not exactly two fields within the limit
//   decryptionFailed  HPKE cannot be set up from the encapsulated key, or the box does not open
//                     (also when it was sealed for another receiver, label or sender)
//   badSignature      the sender's key or signature cannot be read, or does not verify
// The sender's hash in the info is computed from the expected key, so a box opens only when it
// really comes from the party the receiver expects.
Bytes openMessage(ByteView sealed, std::string_view label, ByteView senderSigningKey,
                  const DeviceKeys& receiver);

}  // namespace quorvane
