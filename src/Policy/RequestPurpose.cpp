#include "Policy/RequestPurpose.h"

#include <utility>

namespace quorvane {

RequestPurpose RequestPurpose::login(std::optional<std::string> hostKey, std::string user,
                                     std::vector<std::string> forwardedVia) {
  return {Login{std::move(hostKey), std::move(user), std::move(forwardedVia)}};
}

RequestPurpose RequestPurpose::signature(std::string namespace_) {
  return {Signature{std::move(namespace_)}};
}

RequestPurpose RequestPurpose::other() { return {Other{}}; }

JSON toJSON(const RequestPurpose& purpose) {
  JSON json = JSON::object();
  if (const auto* login = std::get_if<RequestPurpose::Login>(&purpose.value)) {
    JSON fields = {{"user", login->user}, {"forwardedVia", login->forwardedVia}};
    if (login->hostKey) fields["hostKey"] = *login->hostKey;
    json["login"] = std::move(fields);
  } else if (const auto* signature = std::get_if<RequestPurpose::Signature>(&purpose.value)) {
    json["signature"] = {{"namespace", signature->namespace_}};
  } else {
    json["other"] = JSON::object();
  }
  return json;
}

RequestPurpose decodeRequestPurpose(const JSONReader& reader) {
  auto [caseKey, fields] = reader.singleCase({"login", "signature", "other"});
  if (caseKey == "login") {
    std::optional<std::string> hostKey;
    if (auto value = fields.optional("hostKey")) hostKey = value->string();
    return RequestPurpose::login(std::move(hostKey), fields.required("user").string(),
                                 fields.required("forwardedVia").strings());
  }
  if (caseKey == "signature")
    return RequestPurpose::signature(fields.required("namespace").string());
  fields.requireObject();
  return RequestPurpose::other();
}

}  // namespace quorvane
