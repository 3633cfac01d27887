#include "Policy/PolicyRequest.h"

#include <variant>

namespace quorvane {

bool windowEligible(const PolicyRequest& request) {
  if (!request.origin.appTeamID) return false;
  if (std::holds_alternative<RequestPurpose::Signature>(request.purpose.value)) return true;
  const auto* login = std::get_if<RequestPurpose::Login>(&request.purpose.value);
  return login && login->hostKey && login->forwardedVia.empty();
}

}  // namespace quorvane
