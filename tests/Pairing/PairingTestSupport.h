#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/QAPFailure.h"
#include "ApprovalProto/SoftwareSigner.h"
#include "Crypto/XWing.h"
#include "Pairing/PairingError.h"

namespace quorvane::testing {

// Device keys from a fixed P-256 scalar and X-Wing seed (both 32 bytes), as the vectors give them.
inline DeviceKeys fixedDeviceKeys(ByteView signingScalar, ByteView kemSeed, std::string name) {
  auto signer = std::make_shared<SoftwareSigner>(SoftwareSigner::fromPrivateKey(signingScalar));
  auto kem = crypto::XWingPrivateKey::fromSeed(kemSeed);
  if (!kem) throw std::runtime_error("bad X-Wing seed");
  return DeviceKeys::restore(signer, kemSeed, kem->publicKey().bytes(), std::move(name));
}

// The kind of the QAPFailure that `action` throws; fails the calling test when it throws none.
inline QAPFailure::Kind qapFailureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const QAPFailure& failure) {
    return failure.kind();
  }
  ADD_FAILURE() << "no QAPFailure thrown";
  return static_cast<QAPFailure::Kind>(-1);
}

// The kind of the PairingError that `action` throws; fails the calling test when it throws none.
inline PairingError::Kind pairingErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const PairingError& error) {
    return error.kind();
  }
  ADD_FAILURE() << "no PairingError thrown";
  return static_cast<PairingError::Kind>(-1);
}

}  // namespace quorvane::testing

namespace quorvane {
inline void PrintTo(QAPFailure::Kind kind, std::ostream* out) {
  *out << QAPFailure::kKindNames.name(kind);
}
inline void PrintTo(PairingError::Kind kind, std::ostream* out) {
  *out << PairingError::kKindNames.name(kind);
}
}  // namespace quorvane
