#pragma once

#include <memory>

#include "Base/Bytes.h"
#include "SSHWire/SSHKeyType.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SignFlags.h"

namespace quorvane::testing {

// A throwaway key made with OpenSSL for tests: its SSH public key, and SSH signature blobs made
// through the production builders (SSHSignature) from OpenSSL's raw signatures.
class TestSigner {
 public:
  // RSA keys are 2048 bits. Fails the calling test if OpenSSL fails.
  explicit TestSigner(SSHKeyType type);
  ~TestSigner();
  TestSigner(const TestSigner&) = delete;
  TestSigner& operator=(const TestSigner&) = delete;

  const SSHPublicKey& publicKey() const { return publicKey_; }

  // A signature blob over `data`; for RSA the flags pick SHA-256 or SHA-512 (default SHA-512).
  Bytes sign(ByteView data, SignFlags flags = SignFlags::rsaSHA2_512) const;

 private:
  struct Key;
  SSHKeyType type_;
  std::unique_ptr<Key> key_;
  SSHPublicKey publicKey_;
};

}  // namespace quorvane::testing
