#pragma once

#include <string>

#include "Policy/RequestOrigin.h"
#include "Policy/RequestPurpose.h"

namespace quorvane {

// One signing request as the policy sees it: which key, for what, from which program.
struct PolicyRequest {
  std::string keyFingerprint;
  RequestPurpose purpose;
  RequestOrigin origin;

  friend bool operator==(const PolicyRequest&, const PolicyRequest&) = default;
};

// Whether an approval of this request may cover a window of time rather than this one request:
// only for a signed program (with a team) asking for a signature, or for a direct login to a
// verified host. Unsigned programs, unverified hosts, forwarded logins and other data never get
// a window.
bool windowEligible(const PolicyRequest& request);

}  // namespace quorvane
