#include "Policy/RequestOrigin.h"

namespace quorvane {

std::string treeKey(const RequestOrigin& origin) {
  if (origin.appTeamID)
    return *origin.appTeamID + ":" + origin.appIdentifier.value_or(origin.appName);
  return "unverified:" + (origin.chainPaths.empty() ? origin.appName : origin.chainPaths.back());
}

JSON toJSON(const RequestOrigin& origin) {
  JSON json = {{"appName", origin.appName},
               {"chainPaths", origin.chainPaths},
               {"unsignedPrograms", origin.unsignedPrograms}};
  if (origin.appIdentifier) json["appIdentifier"] = *origin.appIdentifier;
  if (origin.appTeamID) json["appTeamID"] = *origin.appTeamID;
  if (origin.workingDirectory) json["workingDirectory"] = *origin.workingDirectory;
  if (origin.gitHint) json["gitHint"] = toJSON(*origin.gitHint);
  if (origin.claimedReason) json["claimedReason"] = *origin.claimedReason;
  if (origin.claimedSeconds) json["claimedSeconds"] = *origin.claimedSeconds;
  return json;
}

RequestOrigin decodeRequestOrigin(const JSONReader& reader) {
  RequestOrigin origin;
  if (auto value = reader.optional("appIdentifier")) origin.appIdentifier = value->string();
  if (auto value = reader.optional("appTeamID")) origin.appTeamID = value->string();
  origin.appName = reader.required("appName").string();
  origin.chainPaths = reader.required("chainPaths").strings();
  if (auto value = reader.optional("workingDirectory")) origin.workingDirectory = value->string();
  if (auto value = reader.optional("gitHint")) origin.gitHint = decodeGitHint(*value);
  if (auto value = reader.optional("claimedReason")) origin.claimedReason = value->string();
  if (auto value = reader.optional("claimedSeconds")) origin.claimedSeconds = value->int64();
  origin.unsignedPrograms = reader.required("unsignedPrograms").strings();
  return origin;
}

}  // namespace quorvane
