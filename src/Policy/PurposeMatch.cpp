#include "Policy/PurposeMatch.h"

#include <utility>

namespace quorvane {

PurposeMatch PurposeMatch::signature(std::optional<std::string> namespace_) {
  return {Signature{std::move(namespace_)}};
}

PurposeMatch PurposeMatch::any() { return {Any{}}; }

PurposeMatch PurposeMatch::login() { return {Login{}}; }

PurposeMatch PurposeMatch::other() { return {Other{}}; }

JSON toJSON(const PurposeMatch& match) {
  JSON json = JSON::object();
  if (const auto* signature = std::get_if<PurposeMatch::Signature>(&match.value)) {
    JSON fields = JSON::object();
    if (signature->namespace_) fields["namespace"] = *signature->namespace_;
    json["signature"] = std::move(fields);
  } else if (std::holds_alternative<PurposeMatch::Any>(match.value)) {
    json["any"] = JSON::object();
  } else if (std::holds_alternative<PurposeMatch::Login>(match.value)) {
    json["login"] = JSON::object();
  } else {
    json["other"] = JSON::object();
  }
  return json;
}

PurposeMatch decodePurposeMatch(const JSONReader& reader) {
  auto [caseKey, fields] = reader.singleCase({"signature", "any", "login", "other"});
  fields.requireObject();
  if (caseKey == "signature") {
    std::optional<std::string> namespace_;
    if (auto value = fields.optional("namespace")) namespace_ = value->string();
    return PurposeMatch::signature(std::move(namespace_));
  }
  if (caseKey == "any") return PurposeMatch::any();
  if (caseKey == "login") return PurposeMatch::login();
  return PurposeMatch::other();
}

}  // namespace quorvane
