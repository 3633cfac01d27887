#include "TPM/TPMHardwareKeys.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "Crypto/Hash.h"
#include "KeyStore/KeyStoreError.h"
#include "SSHWire/WireReader.h"
#include "TPM/TPMSession.h"
#include "TPM/TPMWorker.h"

namespace quorvane {
namespace {

// A plainer reason than the TSS's "IO failure" when the TCTI is a device that is missing or
// closed to this user.
std::optional<std::string> deviceProblem(const std::string& tcti) {
  constexpr std::string_view kDevicePrefix = "device:";
  if (!tcti.starts_with(kDevicePrefix)) return std::nullopt;
  std::string path = tcti.substr(kDevicePrefix.size());
  if (path.empty()) path = "/dev/tpmrm0";
  if (::access(path.c_str(), F_OK) != 0)
    return path + " does not exist (no TPM, or its driver is not loaded)";
  if (::access(path.c_str(), R_OK | W_OK) != 0)
    return "you may not use " + path + " (join its group, usually tss, and log in again)";
  return std::nullopt;
}

}  // namespace

std::string TPMHardwareKeys::configuredTCTI() {
  const char* configured = std::getenv(kTCTIVariable);
  if (configured == nullptr || *configured == '\0') return kDefaultTCTI;
  return configured;
}

TPMHardwareKeys::TPMHardwareKeys(std::string tcti)
    : tcti_(std::move(tcti)), worker_(std::make_unique<TPMWorker>()) {
  ::setenv("TSS2_LOG", "all+none", 0);
}

TPMHardwareKeys::~TPMHardwareKeys() {
  worker_->run([this] { session_.reset(); });
  worker_.reset();
}

bool TPMHardwareKeys::connect() {
  if (session_ && !session_->broken()) return true;
  session_.reset();
  try {
    auto session = std::make_unique<TPMSession>(tcti_);
    session->ensurePrimary();
    session_ = std::move(session);
    problem_.reset();
    return true;
  } catch (const KeyStoreError& error) {
    problem_ = deviceProblem(tcti_).value_or(error.text());
    return false;
  }
}

bool TPMHardwareKeys::available() {
  bool connected = false;
  worker_->run([&] { connected = connect(); });
  return connected;
}

std::optional<std::string> TPMHardwareKeys::problem() {
  std::optional<std::string> problem;
  worker_->run([&] { problem = problem_; });
  return problem;
}

void TPMHardwareKeys::withSession(const std::function<void(TPMSession&)>& work) {
  worker_->run([&] {
    if (!connect()) throw KeyStoreError::secureEnclaveUnavailable();
    try {
      work(*session_);
    } catch (...) {
      if (session_->broken()) session_.reset();
      throw;
    }
  });
}

HardwareKeys::CreatedKey TPMHardwareKeys::create(ProtectionClass protection,
                                                 const SecureBytes* pin) {
  if (protection == ProtectionClass::imported)
    throw KeyStoreError::unsupported("import has its own path");
  const bool withPIN = protection != ProtectionClass::remoteApproval;
  if (withPIN && (pin == nullptr || pin->empty()))
    throw KeyStoreError::accessControl("a key that needs your presence needs a PIN");
  CreatedKey created;
  withSession([&](TPMSession& session) {
    TPMSession::NewKey key = session.createKey(withPIN ? pin : nullptr);
    created = {SSHPublicKey::ecdsa(SSHKeyType::ecdsaP256, key.point), std::move(key.blob)};
  });
  return created;
}

HardwareKeys::CreatedKey TPMHardwareKeys::importKey(const SSHPublicKey& publicKey,
                                                    const SecureBytes& secret) {
  if (publicKey.keyType() != SSHKeyType::ecdsaP256)
    throw KeyStoreError::unsupported("only P-256 keys can be moved into the TPM");
  WireReader reader(publicKey.blob);
  reader.readStringView();  // the key type
  reader.readStringView();  // the curve
  const Bytes point = reader.readString();
  CreatedKey created;
  withSession([&](TPMSession& session) {
    TPMSession::NewKey key = session.importKey(secret.view(), point);
    created = {publicKey, std::move(key.blob)};
  });
  return created;
}

uint32_t TPMHardwareKeys::safeTries(uint32_t failedTries, uint32_t maxTries) {
  return maxTries > failedTries + 1 ? maxTries - failedTries - 1 : 0;
}

Bytes TPMHardwareKeys::sign(ByteView handle, ByteView data, const SecureBytes* pin) {
  const Bytes digest = crypto::sha256(data);
  Bytes signature;
  withSession([&](TPMSession& session) {
    if (pin == nullptr) {
      signature = session.sign(handle, digest, nullptr);
      return;
    }
    // Never the try that would lock the TPM: a locked TPM refuses every PIN key for a long
    // time, and other programs' keys with it.
    TPMSession::Lockout before = session.lockout();
    if (before.inLockout || safeTries(before.failedTries, before.maxTries) == 0)
      throw KeyStoreError::pinLockedOut(std::max<uint32_t>(1, before.intervalSeconds));
    try {
      signature = session.sign(handle, digest, pin);
    } catch (const TPMAuthRefused& refused) {
      TPMSession::Lockout after = session.lockout();
      const uint32_t left = safeTries(after.failedTries, after.maxTries);
      if (refused.lockedOut || left == 0)
        throw KeyStoreError::pinLockedOut(std::max<uint32_t>(1, after.intervalSeconds));
      throw KeyStoreError::wrongPIN(left);
    }
  });
  return signature;
}

}  // namespace quorvane
