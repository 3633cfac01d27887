#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "ApprovalProto/ApprovalTestSupport.h"
#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/QAPFailure.h"
#include "ApprovalProto/SoftwareSigner.h"
#include "Crypto/XWing.h"
#include "Pairing/PairingError.h"
#include "support/TestSupport.h"

namespace quorvane::testing {

// Device keys from a fixed P-256 scalar and X-Wing seed (both 32 bytes), as the vectors give them.
inline DeviceKeys fixedDeviceKeys(ByteView signingScalar, ByteView kemSeed, std::string name) {
  auto signer = std::make_shared<SoftwareSigner>(SoftwareSigner::fromPrivateKey(signingScalar));
  auto kem = crypto::XWingPrivateKey::fromSeed(kemSeed);
  if (!kem) throw std::runtime_error("bad X-Wing seed");
  return DeviceKeys::restore(signer, kemSeed, kem->publicKey().bytes(), std::move(name));
}

// The kind of the PairingError that `action` throws; fails the calling test when it throws none.
inline PairingError::Kind pairingErrorOf(const std::function<void()>& action) {
  return errorKindOf<PairingError>(action);
}

}  // namespace quorvane::testing

namespace quorvane {
inline void PrintTo(PairingError::Kind kind, std::ostream* out) {
  *out << PairingError::kKindNames.name(kind);
}
}  // namespace quorvane
