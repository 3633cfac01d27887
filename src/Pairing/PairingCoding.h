#pragma once

// Field codecs shared by the binary pairing messages; for use inside Pairing. Every message is
// uint32 version 2, then its fields in the SSH wire encoding; decoders read the whole buffer and
// throw QAPFailure malformed for any defect (unsupportedVersion for another version word).

#include <cstddef>
#include <string>

#include "ApprovalProto/DeviceIdentity.h"
#include "ApprovalProto/MessageCoding.h"
#include "Base/SecureBytes.h"

namespace quorvane::pairingcoding {

// Texts and tokens of the pairing messages (relay URL, mailbox ids, send tokens, names) are at
// most this long.
inline constexpr size_t kTextLimit = 2048;
// Secrets, nonces, commitments, hashes and tags are exactly this long.
inline constexpr size_t kValueSize = 32;
// A P-256 public key in X9.63 uncompressed form.
inline constexpr size_t kSigningKeySize = 65;

// A UTF-8 string of at most kTextLimit bytes.
std::string readText(WireReader& reader);
// A string of at most kTextLimit bytes, straight into wiping storage.
SecureBytes readSecretText(WireReader& reader);
// A string of exactly kValueSize bytes.
Bytes readValue(WireReader& reader);

// string signingKey (65 bytes), string kemKey (1216 bytes), string name (UTF-8, kTextLimit).
void writeIdentity(WireWriter& writer, const DeviceIdentity& identity);
DeviceIdentity readIdentity(WireReader& reader);

}  // namespace quorvane::pairingcoding
