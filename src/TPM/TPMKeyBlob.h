#pragma once

#include <tss2/tss2_tpm2_types.h>

#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

// Included only by the TPM library's own sources and its fuzz target: the TSS headers stay out of
// every other part of the program.

namespace quorvane {

// A TPM signing key as the key store keeps it (the record's secret). The private part is wrapped
// by the TPM's storage key: it can be loaded only into the TPM that made it, under the same
// storage primary key, and never gives up the private scalar. Stored as SSH wire strings:
//   string  "quorvane-tpm-ecdsa-p256-v1"
//   string  TPM2B_PUBLIC, marshalled as the TPM marshals it (size prefix included)
//   string  TPM2B_PRIVATE, marshalled likewise
struct TPMKeyBlob {
  TPM2B_PUBLIC publicPart{};
  TPM2B_PRIVATE privatePart{};
};

inline constexpr const char* kTPMKeyBlobMagic = "quorvane-tpm-ecdsa-p256-v1";

SecureBytes encodeTPMKeyBlob(const TPM2B_PUBLIC& publicPart, const TPM2B_PRIVATE& privatePart);

// The key of a stored blob; nothing when the bytes are not a whole blob, have bytes left over, or
// hold a public part that is not a P-256 ECDSA-SHA-256 signing key (made in the TPM, or imported
// into it).
std::optional<TPMKeyBlob> decodeTPMKeyBlob(ByteView bytes);

// The public key of a P-256 public area as an uncompressed point (0x04 || x || y, 65 bytes);
// nothing when it is not a P-256 ECDSA-SHA-256 signing key.
std::optional<Bytes> p256Point(const TPM2B_PUBLIC& publicPart);

}  // namespace quorvane
