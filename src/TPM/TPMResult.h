#pragma once

#include <tss2/tss2_common.h>

#include <string>

// Included only by the TPM library's own sources.

namespace quorvane {

// "<command>: <the TSS's description of rc>".
std::string describeTPMResult(TSS2_RC rc, const std::string& command);

// Whether `rc` says the connection to the TPM failed (rather than the TPM refusing a command).
bool isConnectionFailure(TSS2_RC rc);

// How the TPM refused an authorization, from the code a command returned.
enum class TPMAuthRefusal {
  none,       // not an authorization refusal
  wrongPIN,   // the HMAC did not match: a wrong authorization value, counted by the TPM
  lockedOut,  // the TPM refuses keys under dictionary-attack protection for now
};
TPMAuthRefusal authRefusalOf(TSS2_RC rc);

}  // namespace quorvane
