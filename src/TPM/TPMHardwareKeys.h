#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KeyStore/HardwareKeys.h"

namespace quorvane {

class TPMSession;
class TPMWorker;

// Hardware keys in a TPM 2.0, through tpm2-tss: P-256 signing keys wrapped by a storage primary
// key that is made once per process. The record's secret is the wrapped key (public and
// private parts), which only this TPM can load. Every TPM command runs on one worker thread that
// owns the TSS context, so callers on many threads wait only for the TPM itself, and software
// keys never wait for it.
//
// The TPM is reached through the TCTI that QUORVANE_TPM_TCTI names ("swtpm:path=/tmp/tpm" for a
// software TPM), else "device:/dev/tpmrm0" (the kernel's resource manager); never through the
// TSS's own default, which would silently pick a simulator on localhost.
class TPMHardwareKeys final : public HardwareKeys {
 public:
  static constexpr const char* kTCTIVariable = "QUORVANE_TPM_TCTI";
  static constexpr const char* kDefaultTCTI = "device:/dev/tpmrm0";

  // The TCTI from QUORVANE_TPM_TCTI, or kDefaultTCTI when it is unset or empty.
  static std::string configuredTCTI();

  // Connects lazily, at the first use. Quiets the TSS's own logging on standard error (unless
  // TSS2_LOG says otherwise): a machine without a TPM is an answer here, not an error to print.
  explicit TPMHardwareKeys(std::string tcti = configuredTCTI());
  ~TPMHardwareKeys() override;
  TPMHardwareKeys(const TPMHardwareKeys&) = delete;
  TPMHardwareKeys& operator=(const TPMHardwareKeys&) = delete;

  const std::string& tcti() const { return tcti_; }

  // Connects (again, after a failure) and makes the storage primary key if needed; true when
  // the TPM can be used now.
  bool available() override;
  // Why the TPM cannot be used, after `available` said false.
  std::optional<std::string> problem();

  // A `remoteApproval` key has no PIN and is exempt from the TPM's dictionary-attack lockout;
  // the other classes need a PIN (1 to 32 bytes), which becomes the key's authorization value.
  CreatedKey create(ProtectionClass protection, const SecureBytes* pin) override;
  // With a PIN: never makes the try that would bring the TPM to its lockout (pinLockedOut
  // instead, with the time after which the TPM forgets one failure); a wrong PIN is wrongPIN
  // with the tries that remain before Quorvane stops asking, or pinLockedOut when none do.
  Bytes sign(ByteView handle, ByteView data, const SecureBytes* pin) override;
  // P-256 keys only (unsupported otherwise).
  CreatedKey importKey(const SSHPublicKey& publicKey, const SecureBytes& secret) override;

  // The tries Quorvane allows after `failedTries` of `maxTries`: one fewer than the TPM would,
  // so that the TPM itself never locks.
  static uint32_t safeTries(uint32_t failedTries, uint32_t maxTries);

 private:
  // Runs `work` with a connected session on the worker thread; no TPM: secureEnclaveUnavailable.
  void withSession(const std::function<void(TPMSession&)>& work);
  // On the worker thread: connects when there is no working session. False when it cannot.
  bool connect();

  const std::string tcti_;
  // Touched only on the worker's thread.
  std::unique_ptr<TPMSession> session_;
  std::optional<std::string> problem_;
  // Last, so that it stops (finishing what it runs) before the session goes.
  std::unique_ptr<TPMWorker> worker_;
};

}  // namespace quorvane
