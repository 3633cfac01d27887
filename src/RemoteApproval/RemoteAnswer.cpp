#include "RemoteApproval/RemoteAnswer.h"

namespace quorvane {

ApprovalResult approvalResultOf(const ApprovalResponseMessage& response,
                                const std::string& deviceName) {
  switch (response.decision) {
    case ApprovalDecision::approve: {
      const ApprovalScope scope = response.scope == qap::ApprovalScope::fiveMinutes
                                      ? ApprovalScope::window(kRemoteWindowSeconds)
                                      : ApprovalScope::once();
      return {ApprovalResult::Approved{scope, nullptr, deviceName, response.fingerprintShown}};
    }
    case ApprovalDecision::deny: return {ApprovalResult::Denied{false, deviceName}};
    case ApprovalDecision::denyAndBlock: return {ApprovalResult::Denied{true, deviceName}};
  }
  return {ApprovalResult::Denied{false, deviceName}};
}

}  // namespace quorvane
