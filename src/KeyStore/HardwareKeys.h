#pragma once

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "KeyStore/KeyStoreError.h"
#include "KeyStore/ProtectionClass.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {

// A back end that makes and uses P-256 keys which cannot leave the machine (a TPM on Linux). The
// key store works without one; until a back end is plugged in, creating or using hardware keys
// fails with KeyStoreError::secureEnclaveUnavailable.
class HardwareKeys {
 public:
  virtual ~HardwareKeys() = default;

  struct CreatedKey {
    // An "ecdsa-sha2-nistp256" key.
    SSHPublicKey publicKey;
    // The back end's opaque handle (for a TPM, the wrapped key blob); stored as the record's
    // secret.
    SecureBytes handle;
  };

  // Whether the hardware can be used now.
  virtual bool available() = 0;
  // A new P-256 key whose use is gated as `protection` says (never `imported`); `pin`, when
  // given, is the secret that the hardware itself asks for at every signature (keys that stand
  // for the user's presence). Throws KeyStoreError (accessControl when the protection cannot be
  // set up).
  virtual CreatedKey create(ProtectionClass protection, const SecureBytes* pin) = 0;
  // The raw ECDSA signature r || s (32 bytes each) over SHA-256 of `data`, by the key of
  // `handle`, authorised by `pin` for a key made with one. Throws KeyStoreError (wrongPIN and
  // pinLockedOut for a key with a PIN).
  virtual Bytes sign(ByteView handle, ByteView data, const SecureBytes* pin) = 0;
  // Moves an existing P-256 key (the 32-byte private scalar `secret` of `publicKey`) into the
  // hardware; the key signs without a PIN from then on. Throws KeyStoreError (unsupported where
  // the hardware cannot take keys in).
  virtual CreatedKey importKey(const SSHPublicKey& publicKey, const SecureBytes& secret) {
    (void)publicKey;
    (void)secret;
    throw KeyStoreError::unsupported("this hardware does not take keys in");
  }
};

}  // namespace quorvane
