#include "TPM/TPMResult.h"

#include <tss2/tss2_rc.h>
#include <tss2/tss2_tpm2_types.h>

namespace quorvane {
namespace {

// The response code of the TPM itself without the handle, session or parameter number that
// format-one codes carry; the layer bits must be the TPM's.
TSS2_RC tpmCode(TSS2_RC rc) {
  if ((rc & TSS2_RC_LAYER_MASK) != TSS2_TPM_RC_LAYER) return rc;
  if ((rc & TPM2_RC_FMT1) != 0) return rc & (TPM2_RC_FMT1 | 0x3f);
  return rc;
}

}  // namespace

std::string describeTPMResult(TSS2_RC rc, const std::string& command) {
  return command + ": " + Tss2_RC_Decode(rc);
}

bool isConnectionFailure(TSS2_RC rc) { return (rc & TSS2_RC_LAYER_MASK) == TSS2_TCTI_RC_LAYER; }

TPMAuthRefusal authRefusalOf(TSS2_RC rc) {
  switch (tpmCode(rc)) {
    case TPM2_RC_AUTH_FAIL:
    case TPM2_RC_BAD_AUTH: return TPMAuthRefusal::wrongPIN;
    case TPM2_RC_LOCKOUT: return TPMAuthRefusal::lockedOut;
    default: return TPMAuthRefusal::none;
  }
}

}  // namespace quorvane
