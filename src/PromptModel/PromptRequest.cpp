#include "PromptModel/PromptRequest.h"

#include "Base/DecodingError.h"
#include "Policy/RequestOrigin.h"

namespace quorvane {
namespace {

std::optional<std::string> optionalString(const JSONReader& reader, std::string_view key) {
  if (auto value = reader.optional(key)) return value->string();
  return std::nullopt;
}

std::string duration(int64_t seconds) {
  if (seconds % 3600 == 0 && seconds >= 3600) return std::to_string(seconds / 3600) + " h";
  if (seconds % 60 == 0 && seconds >= 60) return std::to_string(seconds / 60) + " min";
  return std::to_string(seconds) + " s";
}

}  // namespace

PromptRequest decodePromptRequest(const JSON& json) {
  JSONReader reader(json, "request");
  reader.requireObject();
  PromptRequest request;
  request.id = reader.required("id").string();
  request.reason = reader.required("reason").string();
  const JSONReader key = reader.required("key");
  request.keyName = key.required("name").string();
  request.keyFingerprint = key.required("fingerprint").string();
  const RequestOrigin origin = decodeRequestOrigin(reader.required("origin"));
  request.programName = origin.appName;
  request.programVerified = origin.appTeamID.has_value();
  request.chainPaths = origin.chainPaths;
  request.workingDirectory = origin.workingDirectory;
  request.claimedReason = origin.claimedReason;
  request.claimedSeconds = origin.claimedSeconds;
  request.hostDisplay = optionalString(reader, "hostDisplay");
  request.hostKeyFingerprint = optionalString(reader, "hostKeyFingerprint");
  if (auto hostName = reader.optional("hostName")) {
    hostName->requireObject();
    request.hostWarning = hostName->json().contains("conflict");
  }
  request.windowAllowed = reader.required("windowAllowed").boolean();
  if (auto offline = reader.optional("remoteOffline")) request.remoteOffline = offline->boolean();
  request.expiresAt = reader.required("expiresAt").date(DateEncoding::iso8601);
  return request;
}

std::vector<PromptDetail> promptDetails(const PromptRequest& request) {
  std::vector<PromptDetail> rows;
  rows.push_back(
      {"Program",
       request.programName + (request.programVerified ? " (verified)" : " (not verified)"),
       !request.programVerified});
  rows.push_back({"Key", request.keyName + "  " + request.keyFingerprint, false});
  if (request.hostDisplay) rows.push_back({"Host", *request.hostDisplay, request.hostWarning});
  if (request.hostKeyFingerprint) rows.push_back({"Host key", *request.hostKeyFingerprint, false});
  if (request.claimedReason) {
    std::string claim = "“" + *request.claimedReason + "”";
    if (request.claimedSeconds) claim += " for " + duration(*request.claimedSeconds);
    rows.push_back({"It says", claim + " (its own claim)", false});
  }
  for (size_t i = 0; i < request.chainPaths.size(); ++i)
    rows.push_back({i == 0 ? "Process chain" : "", request.chainPaths[i], false});
  if (request.workingDirectory) rows.push_back({"Folder", *request.workingDirectory, false});
  return rows;
}

}  // namespace quorvane
