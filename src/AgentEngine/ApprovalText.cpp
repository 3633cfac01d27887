#include "AgentEngine/ApprovalText.h"

#include <variant>

#include "AgentEngine/HostNameStatus.h"

namespace quorvane {
namespace {

// The byte length of the first `count` code points of `text` (all of it when shorter). Bytes
// that cannot start a sequence are counted as one character each, so bad input cannot make the
// cut land inside a sequence.
size_t prefixLength(std::string_view text, size_t count) {
  size_t offset = 0;
  for (size_t seen = 0; seen < count && offset < text.size(); ++seen) {
    ++offset;
    while (offset < text.size() && (static_cast<uint8_t>(text[offset]) & 0xC0) == 0x80) ++offset;
  }
  return offset;
}

}  // namespace

std::optional<std::string> hostDisplay(const HostNameStatus& status) {
  struct Visitor {
    std::optional<std::string> operator()(const HostNameStatus::Confirmed& s) { return s.name; }
    std::optional<std::string> operator()(const HostNameStatus::Claimed& s) {
      return s.name + " (name not confirmed)";
    }
    std::optional<std::string> operator()(const HostNameStatus::Conflict& s) {
      return s.name + " (WARNING: different host key than before)";
    }
    std::optional<std::string> operator()(const HostNameStatus::Unknown&) { return std::nullopt; }
  };
  return std::visit(Visitor{}, status.value);
}

std::string shortenedApprovalPart(std::string_view text) {
  // At most 80 characters: the first 80 cover the whole text.
  if (prefixLength(text, kApprovalPartShorteningLength - 1) == text.size())
    return std::string(text);
  return std::string(text.substr(0, prefixLength(text, kApprovalPartShorteningLength - 2))) + "…";
}

std::string approvalAction(const RequestPurpose& purpose,
                           const std::optional<std::string>& hostDisplay) {
  struct Visitor {
    const std::optional<std::string>& host;
    std::string operator()(const RequestPurpose::Other&) { return "make an unknown signature"; }
    std::string operator()(const RequestPurpose::Signature& s) {
      return s.namespace_ == "git" ? "sign a Git commit" : "sign data (" + s.namespace_ + ")";
    }
    std::string operator()(const RequestPurpose::Login& login) {
      std::string action = "sign in to " + host.value_or("an unverified host");
      if (!login.forwardedVia.empty()) action += " through a forwarded connection";
      return action;
    }
  };
  return std::visit(Visitor{hostDisplay}, purpose.value);
}

std::string approvalReason(std::string_view programName, const RequestPurpose& purpose,
                           const std::optional<std::string>& hostDisplay,
                           std::string_view keyName) {
  return shortenedApprovalPart(programName) + " for " +
         shortenedApprovalPart(approvalAction(purpose, hostDisplay)) + " with key “" +
         shortenedApprovalPart(keyName) + "”";
}

}  // namespace quorvane
