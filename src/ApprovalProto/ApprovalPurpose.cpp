#include "ApprovalProto/ApprovalPurpose.h"

namespace quorvane {

ApprovalPurpose ApprovalPurpose::login(std::optional<std::string> hostKeyFingerprint,
                                       std::optional<std::string> hostName, HostNameState nameState,
                                       std::string user, bool forwarded) {
  return {Login{std::move(hostKeyFingerprint), std::move(hostName), nameState, std::move(user),
                forwarded}};
}

ApprovalPurpose ApprovalPurpose::signature(std::string namespace_) {
  return {Signature{std::move(namespace_)}};
}

ApprovalPurpose ApprovalPurpose::other() { return {Other{}}; }

}  // namespace quorvane
