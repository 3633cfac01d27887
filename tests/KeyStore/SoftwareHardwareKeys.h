#pragma once

#include <atomic>

#include "KeyStore/HardwareKeys.h"
#include "KeyStore/ImportedKey.h"
#include "SignatureBlob.h"

namespace quorvane::testing {

// A stand-in for a hardware back end: P-256 keys made and used in software, so that tests can
// follow the hardware path and keys of every protection class can sign.
class SoftwareHardwareKeys final : public HardwareKeys {
 public:
  // Signatures that were given a PIN (which this stand-in does not check).
  std::atomic<int> signaturesWithPIN = 0;

  bool available() override { return true; }
  CreatedKey create(ProtectionClass, const SecureBytes*) override {
    ImportedKey key = ImportedKey::generate(KeyAlgorithm::ecdsaP256);
    return {key.publicKey(), key.secret()};
  }
  Bytes sign(ByteView handle, ByteView data, const SecureBytes* pin) override {
    if (pin != nullptr) ++signaturesWithPIN;
    return ecdsaRawSignature(
        ImportedKey::fromSecret(KeyAlgorithm::ecdsaP256, handle)->sign(data, {}), 32);
  }
};

}  // namespace quorvane::testing
