#pragma once

#include <ostream>
#include <string>
#include <utility>

#include "Policy/PolicyEngine.h"

namespace quorvane {

// Readable failure messages for dates, decisions and outcomes.
inline void PrintTo(Date date, std::ostream* out) { *out << date.secondsSince1970; }

inline void PrintTo(Decision decision, std::ostream* out) { *out << rawValue(decision); }

inline void PrintTo(const PolicyOutcome& outcome, std::ostream* out) {
  static const char* const kReasons[] = {"blocked",        "rule",         "grant",
                                         "unverifiedHost", "otherPurpose", "default"};
  *out << rawValue(outcome.decision) << "/" << kReasons[outcome.reason.value.index()]
       << (outcome.windowAllowed ? "/window" : "/once");
}

namespace policytest {

inline const std::string kKey = "SHA256:key-one";
inline const std::string kHost = "SHA256:host-one";

inline RequestOrigin signedApp(std::string identifier = "com.example.editor",
                               std::string team = "TEAM1") {
  RequestOrigin origin;
  origin.appIdentifier = std::move(identifier);
  origin.appTeamID = std::move(team);
  origin.appName = "Editor";
  origin.chainPaths = {"/usr/bin/ssh", "/opt/editor/bin/editor"};
  return origin;
}

inline RequestOrigin unsignedApp(std::string path = "/home/me/bin/tool") {
  RequestOrigin origin;
  origin.appName = "tool";
  origin.chainPaths = {"/usr/bin/ssh", std::move(path)};
  origin.unsignedPrograms = {origin.chainPaths.back()};
  return origin;
}

inline PolicyRequest request(RequestPurpose purpose, RequestOrigin origin = signedApp(),
                             std::string key = kKey) {
  return {std::move(key), std::move(purpose), std::move(origin)};
}

inline PolicyRequest gitSigning(RequestOrigin origin = signedApp()) {
  return request(RequestPurpose::signature("git"), std::move(origin));
}

inline PolicyRequest verifiedLogin(RequestOrigin origin = signedApp()) {
  return request(RequestPurpose::login(kHost, "git"), std::move(origin));
}

inline Rule makeRule(Decision decision, PurposeMatch purpose = PurposeMatch::any(),
                     std::string name = "rule") {
  return Rule::make(std::move(name), decision, std::move(purpose));
}

}  // namespace policytest
}  // namespace quorvane
