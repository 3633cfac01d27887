#pragma once

#include "KeyStore/HardwareKeys.h"
#include "KeyStore/ImportedKey.h"
#include "SignatureBlob.h"

namespace quorvane::testing {

// A stand-in for a hardware back end: P-256 keys made and used in software, so that tests can
// follow the hardware path and keys of every protection class can sign.
class SoftwareHardwareKeys final : public HardwareKeys {
 public:
  bool available() override { return true; }
  CreatedKey create(ProtectionClass) override {
    ImportedKey key = ImportedKey::generate(KeyAlgorithm::ecdsaP256);
    return {key.publicKey(), key.secret()};
  }
  Bytes sign(ByteView handle, ByteView data) override {
    return ecdsaRawSignature(
        ImportedKey::fromSecret(KeyAlgorithm::ecdsaP256, handle)->sign(data, {}), 32);
  }
};

}  // namespace quorvane::testing
