#pragma once

#include "Base/Bytes.h"

namespace quorvane {

// The two messages that exchange the nonces of the short authentication string. Both are sealed
// (signed by the sender's identity key, encrypted to the receiver's) and both repeat the hash of
// the transcript so far, so that each side learns of a changed offer or reply before it shows
// the code.

// The computer's challenge, once it holds the device's commitment: its own nonce.
struct PairingChallenge {
  Bytes transcriptHash;  // 32 bytes
  Bytes macNonce;        // 32 bytes
  friend bool operator==(const PairingChallenge&, const PairingChallenge&) = default;
};

// The device's reveal, once it holds the computer's nonce: the nonce it committed to.
struct PairingReveal {
  Bytes transcriptHash;  // 32 bytes
  Bytes macNonce;        // 32 bytes, echoed
  Bytes deviceNonce;     // 32 bytes
  friend bool operator==(const PairingReveal&, const PairingReveal&) = default;
};

// uint32 2, string transcriptHash, string macNonce.
// uint32 2, string transcriptHash, string macNonce, string deviceNonce.
// Every value is exactly 32 bytes; decoding throws QAPFailure unsupportedVersion or malformed.
Bytes encodePairingChallenge(const PairingChallenge& challenge);
PairingChallenge decodePairingChallenge(ByteView bytes);
Bytes encodePairingReveal(const PairingReveal& reveal);
PairingReveal decodePairingReveal(ByteView bytes);

}  // namespace quorvane
