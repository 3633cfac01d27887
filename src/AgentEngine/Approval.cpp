#include "AgentEngine/Approval.h"

#include "Base/Base64.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {
namespace {

JSON toJSON(const HostNameStatus& status) {
  struct Visitor {
    JSON operator()(const HostNameStatus::Confirmed& s) { return {{"confirmed", s.name}}; }
    JSON operator()(const HostNameStatus::Claimed& s) { return {{"claimed", s.name}}; }
    JSON operator()(const HostNameStatus::Conflict& s) { return {{"conflict", s.name}}; }
    JSON operator()(const HostNameStatus::Unknown&) { return {{"unknown", JSON::object()}}; }
  };
  return std::visit(Visitor{}, status.value);
}

}  // namespace

JSON toJSON(const ApprovalRequest& request) {
  JSON json = {
      {"id", request.id.uuidString()},
      {"key",
       {{"id", request.key.id.uuidString()},
        {"name", request.key.name},
        {"algorithm", std::string(rawValue(request.key.algorithm))},
        {"fingerprint", fingerprint(request.key.publicKeyBlob)}}},
      {"purpose", toJSON(request.purpose)},
      {"origin", toJSON(request.origin)},
      {"hostName", toJSON(request.hostName)},
      {"decision", toJSON(request.decision)},
      {"windowAllowed", request.windowAllowed},
      {"dataHash", base64Encode(request.dataHash, Base64Padding::padded)},
      {"expiresAt", request.expiresAt.iso8601()},
      {"reason", request.reason},
  };
  if (request.hostDisplay) json["hostDisplay"] = *request.hostDisplay;
  if (request.hostKeyFingerprint) json["hostKeyFingerprint"] = *request.hostKeyFingerprint;
  return json;
}

}  // namespace quorvane
