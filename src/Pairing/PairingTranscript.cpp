#include "Pairing/PairingTranscript.h"

#include <openssl/crypto.h>

#include <cstdio>

#include "ApprovalProto/DomainLabels.h"
#include "Base/Check.h"
#include "Crypto/HMAC.h"
#include "Crypto/Hash.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

constexpr size_t kPairingIdentifierSize = 16;

void appendLabel(Bytes& out, std::string_view label) {
  out.insert(out.end(), label.begin(), label.end());
}

void append(Bytes& out, ByteView bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

}  // namespace

Bytes pairingTranscript(const PairingOffer& offer, const PairingReply& reply) {
  WireWriter writer;
  writer.writeString(kQAPPairingTranscriptLabel);
  Bytes offerBytes = encodePairingOffer(offer);
  writer.writeString(offerBytes);
  secureWipe(offerBytes);
  writer.writeString(encodePairingReply(reply));
  return std::move(writer).take();
}

Bytes pairingTranscriptHash(const PairingOffer& offer, const PairingReply& reply) {
  Bytes transcript = pairingTranscript(offer, reply);
  Bytes hash = crypto::sha256(transcript);
  secureWipe(transcript);
  return hash;
}

Bytes pairingCommitment(ByteView secret, ByteView deviceIdentityHash, ByteView deviceNonce) {
  WireWriter writer;
  writer.writeRaw(bytesOf(kQAPPairingNonceLabel));
  writer.writeString(secret);
  writer.writeString(deviceIdentityHash);
  writer.writeString(deviceNonce);
  Bytes input = std::move(writer).take();
  Bytes commitment = crypto::sha256(input);
  secureWipe(input);
  return commitment;
}

Bytes pairingReplyTag(const PairingOffer& offer, const PairingReply& reply) {
  Bytes offerBytes = encodePairingOffer(offer);
  Bytes input;
  appendLabel(input, kQAPPairingReplyLabel);
  append(input, crypto::sha256(offerBytes));
  secureWipe(offerBytes);
  append(input, encodePairingReplyUntagged(reply));
  return crypto::hmacSHA256(offer.secret.view(), input);
}

Bytes pairingIdentifier(ByteView transcriptHash) {
  QUORVANE_CHECK(transcriptHash.size() >= kPairingIdentifierSize, "a transcript hash is 32 bytes");
  return Bytes(transcriptHash.begin(), transcriptHash.begin() + kPairingIdentifierSize);
}

Bytes shortAuthenticationTag(ByteView secret, ByteView transcriptHash, ByteView macNonce,
                             ByteView deviceNonce) {
  Bytes input;
  appendLabel(input, kQAPShortAuthenticationStringLabel);
  append(input, transcriptHash);
  append(input, macNonce);
  append(input, deviceNonce);
  return crypto::hmacSHA256(secret, input);
}

std::string shortAuthenticationString(ByteView tag) {
  QUORVANE_CHECK(tag.size() >= 4, "a short authentication tag has at least 4 bytes");
  const uint32_t number = (uint32_t{tag[0]} << 24) | (uint32_t{tag[1]} << 16) |
                          (uint32_t{tag[2]} << 8) | uint32_t{tag[3]};
  char digits[8];
  std::snprintf(digits, sizeof digits, "%06u", static_cast<unsigned>(number % 1000000));
  return std::string(digits, 3) + " " + std::string(digits + 3, 3);
}

bool tagsMatch(ByteView a, ByteView b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace quorvane
