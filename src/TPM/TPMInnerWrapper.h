#pragma once

#include <tss2/tss2_tpm2_types.h>

// Included only by the TPM library's own sources.

namespace quorvane {

// A key on its way into the TPM, under the TPM's inner duplication wrapper: the sensitive part is
// encrypted (AES-128-CFB, zero IV) under a fresh key after a SHA-256 integrity value over it and
// the object's name, so that it never crosses the bus in the clear; the fresh key itself is the
// import command's first parameter, which an encrypting session protects. Both results are wiped
// by their owner.
struct TPMInnerWrapped {
  TPM2B_DATA encryptionKey{};
  TPM2B_PRIVATE duplicate{};
  TPMT_SYM_DEF_OBJECT symmetric{};
};

// Throws KeyStoreError::hardwareFailed when a part cannot be marshalled or encrypted.
TPMInnerWrapped wrapForImport(const TPM2B_SENSITIVE& sensitive, const TPM2B_PUBLIC& objectPublic);

}  // namespace quorvane
