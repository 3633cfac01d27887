#include "AgentEngine/ApprovalPurposeOf.h"

#include "AgentEngine/HostNaming.h"

namespace quorvane {

namespace {

HostNameState nameStateOf(const HostNameStatus& status) {
  struct Visitor {
    HostNameState operator()(const HostNameStatus::Confirmed&) const {
      return HostNameState::confirmed;
    }
    HostNameState operator()(const HostNameStatus::Claimed&) const {
      return HostNameState::claimed;
    }
    HostNameState operator()(const HostNameStatus::Conflict&) const {
      return HostNameState::conflict;
    }
    HostNameState operator()(const HostNameStatus::Unknown&) const {
      return HostNameState::unknown;
    }
  };
  return std::visit(Visitor{}, status.value);
}

}  // namespace

ApprovalPurpose approvalPurposeOf(const RequestPurpose& purpose, const HostNameStatus& hostName) {
  if (const auto* login = std::get_if<RequestPurpose::Login>(&purpose.value)) {
    return ApprovalPurpose::login(login->hostKey, hostNameOf(hostName), nameStateOf(hostName),
                                  login->user, !login->forwardedVia.empty());
  }
  if (const auto* signature = std::get_if<RequestPurpose::Signature>(&purpose.value))
    return ApprovalPurpose::signature(signature->namespace_);
  return ApprovalPurpose::other();
}

}  // namespace quorvane
