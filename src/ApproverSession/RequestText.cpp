#include "ApproverSession/RequestText.h"

#include <variant>

#include "Base/Hex.h"

namespace quorvane {
namespace {

std::string hostDisplay(const ApprovalPurpose::Login& login) {
  if (!login.hostName) return "an unverified host";
  switch (login.nameState) {
    case HostNameState::claimed: return *login.hostName + " (name not confirmed)";
    case HostNameState::conflict:
      return *login.hostName + " (WARNING: different host key than before)";
    case HostNameState::confirmed:
    case HostNameState::unknown: break;
  }
  return *login.hostName;
}

}  // namespace

std::string requestAction(const ApprovalPurpose& purpose) {
  struct Visitor {
    std::string operator()(const ApprovalPurpose::Other&) { return "make an unknown signature"; }
    std::string operator()(const ApprovalPurpose::Signature& s) {
      return s.namespace_ == "git" ? "sign a Git commit" : "sign data (" + s.namespace_ + ")";
    }
    std::string operator()(const ApprovalPurpose::Login& login) {
      std::string action = "sign in to " + hostDisplay(login);
      if (login.forwarded) action += " through a forwarded connection";
      return action;
    }
  };
  return std::visit(Visitor{}, purpose.value);
}

std::string hostNameCertainty(const ApprovalPurpose& purpose) {
  const auto* login = std::get_if<ApprovalPurpose::Login>(&purpose.value);
  if (login == nullptr) return "";
  if (!login->hostName) return "unknown";
  switch (login->nameState) {
    case HostNameState::confirmed: return "confirmed";
    case HostNameState::claimed: return "name not confirmed";
    case HostNameState::conflict: return "WARNING: different host key than before";
    case HostNameState::unknown: break;
  }
  return "unknown";
}

std::string requestReason(const ApprovalRequestMessage& request) {
  return request.appName + " for " + requestAction(request.purpose) + " with key “" +
         request.keyName + "”";
}

std::string identityFingerprint(const DeviceIdentity& identity) {
  const std::string digits = hexEncode(identity.identityHash()).substr(0, 16);
  std::string grouped;
  for (size_t at = 0; at < digits.size(); at += 4) {
    if (!grouped.empty()) grouped += ' ';
    grouped += digits.substr(at, 4);
  }
  return grouped;
}

}  // namespace quorvane
