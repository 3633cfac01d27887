#include "ProcessContext/ProcessInfoEntry.h"

#include "ProcessContext/JSONInteger.h"

namespace quorvane {

JSON toJSON(const ProcessInfoEntry& entry) {
  JSON json = {{"pid", entry.pid},
               {"path", entry.path},
               {"name", entry.name},
               {"arguments", entry.arguments}};
  if (entry.workingDirectory) json["workingDirectory"] = *entry.workingDirectory;
  if (entry.signingIdentifier) json["signingIdentifier"] = *entry.signingIdentifier;
  if (entry.teamIdentifier) json["teamIdentifier"] = *entry.teamIdentifier;
  if (entry.signatureValid) json["signatureValid"] = *entry.signatureValid;
  if (entry.appleSigned) json["appleSigned"] = *entry.appleSigned;
  if (entry.appBundlePath) json["appBundlePath"] = *entry.appBundlePath;
  return json;
}

ProcessInfoEntry decodeProcessInfoEntry(const JSONReader& reader) {
  ProcessInfoEntry entry;
  entry.pid = decodeInteger<int32_t>(reader.required("pid"));
  entry.path = reader.required("path").string();
  entry.name = reader.required("name").string();
  entry.arguments = reader.required("arguments").strings();
  if (auto value = reader.optional("workingDirectory")) entry.workingDirectory = value->string();
  if (auto value = reader.optional("signingIdentifier")) entry.signingIdentifier = value->string();
  if (auto value = reader.optional("teamIdentifier")) entry.teamIdentifier = value->string();
  if (auto value = reader.optional("signatureValid")) entry.signatureValid = value->boolean();
  if (auto value = reader.optional("appleSigned")) entry.appleSigned = value->boolean();
  if (auto value = reader.optional("appBundlePath")) entry.appBundlePath = value->string();
  return entry;
}

}  // namespace quorvane
