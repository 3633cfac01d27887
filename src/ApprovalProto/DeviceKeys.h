#pragma once

#include <memory>
#include <string>

#include "ApprovalProto/DeviceIdentity.h"
#include "ApprovalProto/QAPSigner.h"
#include "Crypto/XWing.h"

namespace quorvane {

// The private side of one party of the approval protocol: its signing key, its X-Wing key and its
// name. The X-Wing key is stored as its 32-byte seed beside its public key; where both are stored
// is the application's business.
struct DeviceKeys {
  std::shared_ptr<const QAPSigner> signer;
  crypto::XWingPrivateKey kem;
  std::string name;

  // Fresh keys with a software signing key.
  static DeviceKeys generate(std::string name);

  // Keys from storage: `kemSeed` must be a 32-byte seed whose public key is `kemPublicKey` (the
  // public key stored with it), else QAPFailure malformed. REQUIRES: signer is not null.
  static DeviceKeys restore(std::shared_ptr<const QAPSigner> signer, ByteView kemSeed,
                            ByteView kemPublicKey, std::string name);

  // What the other parties learn of these keys.
  DeviceIdentity identity() const;
};

}  // namespace quorvane
