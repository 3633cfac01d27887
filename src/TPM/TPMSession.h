#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// One connection to a TPM through tpm2-tss (a TCTI and an ESYS context), with the storage primary
// key that wraps Quorvane's keys. Not thread-safe: the ESYS context belongs to one thread, so a
// session is made, used and destroyed on the TPMWorker's thread only.
//
// Errors are KeyStoreError: hardwareFailed (the TPM or the connection to it failed, with the
// TSS's description), invalidSecret with an empty id (a stored key that this TPM does not take:
// malformed, or wrapped by another TPM), and accessControl (the key's protection could not be
// set up).
// Thrown by TPMSession::sign when the TPM refused the key's PIN (`lockedOut` false; the TPM
// counted the failure) or refuses PIN keys for now because of too many failures.
struct TPMAuthRefused {
  bool lockedOut = false;
};

class TPMSession {
 public:
  // Loads the TCTI named by `tcti` ("device:/dev/tpmrm0", "swtpm:path=/run/swtpm.sock") and
  // connects. The storage primary key is made on first use.
  explicit TPMSession(const std::string& tcti);
  ~TPMSession();
  TPMSession(const TPMSession&) = delete;
  TPMSession& operator=(const TPMSession&) = delete;

  // Makes the storage primary key now if it was not made yet (otherwise the first key operation
  // does): an ECC P-256 restricted decryption key under the owner hierarchy, from the TCG's
  // standard template, so the same TPM gives the same key in every process.
  void ensurePrimary();

  struct NewKey {
    Bytes point;       // the public key, uncompressed (0x04 || x || y)
    SecureBytes blob;  // the wrapped key as stored (TPMKeyBlob)
  };
  // A new P-256 signing key under the primary. With a PIN it becomes the key's authorization
  // value, sent to the TPM encrypted in a salted session, and the TPM's dictionary-attack
  // protection applies to it; without one the key is exempt from it.
  NewKey createKey(const SecureBytes* pin);

  // Wraps an existing P-256 key (its 32-byte private scalar and uncompressed public point) under
  // the primary, so that from now on only this TPM can use it. Such a key cannot have been made
  // in the TPM, so it is not marked fixed to it; like every key here it cannot be exported,
  // since it has no policy that would allow duplicating it.
  NewKey importKey(ByteView scalar, ByteView point);

  // r || s (32 bytes each) of an ECDSA signature over the SHA-256 `digest` by the stored key,
  // authorised by `pin` (in a salted HMAC session) when given. A refused PIN: TPMAuthRefused.
  Bytes sign(ByteView blob, ByteView digest, const SecureBytes* pin);

  // The TPM's dictionary-attack state.
  struct Lockout {
    uint32_t failedTries = 0;
    uint32_t maxTries = 0;
    uint32_t intervalSeconds = 0;  // one failed try is forgotten after this long
    bool inLockout = false;
  };
  Lockout lockout();

  // Whether the connection failed (the TCTI reported an I/O error): the session should be made
  // again before the next command.
  bool broken() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quorvane
