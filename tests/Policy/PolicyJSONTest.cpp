#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "PolicyTestSupport.h"

namespace quorvane {
namespace {

using namespace policytest;

Rule fullRule() {
  Rule rule;
  rule.id = UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f").value();
  rule.name = "Sign in";
  rule.decision = Decision::askRemote;
  rule.keyFingerprints = {"SHA256:b", "SHA256:a"};
  rule.purpose = PurposeMatch::login();
  rule.hostKeys = {kHost};
  rule.allowForwarded = true;
  rule.appIdentifiers = {"com.example.editor"};
  rule.directoryPrefixes = {"/work/b", "/work/a"};
  rule.gitHints = {GitHint::push, GitHint::fetch};
  return rule;
}

const char kFullRuleJSON[] =
    R"({"allowForwarded":true,"appIdentifiers":["com.example.editor"],"decision":"askRemote",)"
    R"("directoryPrefixes":["/work/b","/work/a"],"gitHints":["fetch","push"],)"
    R"("hostKeys":["SHA256:host-one"],"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
    R"("keyFingerprints":["SHA256:a","SHA256:b"],"name":"Sign in","purpose":{"login":{}}})";

TEST(RuleJSON, WritesExactlyTheFieldKeysSortedWithSetsInOrder) {
  EXPECT_EQ(toJSON(fullRule()).dump(), kFullRuleJSON);
  JSON document = parseJSON(kFullRuleJSON);
  document["id"] = "e621e1f8-c36c-495a-93fc-0c247a3e6e5f";
  document["keyFingerprints"] = {"SHA256:b", "SHA256:a", "SHA256:b"};
  document["gitHints"] = {"push", "fetch", "push"};
  EXPECT_EQ(decodeRule(JSONReader(document)), fullRule());
}

TEST(RuleJSON, ForwardedOnlyIsWrittenOnlyWhenTrue) {
  Rule rule = fullRule();
  rule.forwardedOnly = true;
  JSON json = toJSON(rule);
  EXPECT_EQ(json.at("forwardedOnly"), true);
  EXPECT_EQ(decodeRule(JSONReader(json)), rule);
  json["forwardedOnly"] = false;
  EXPECT_FALSE(decodeRule(JSONReader(json)).forwardedOnly);
}

class RuleJSONWithoutKey : public ::testing::TestWithParam<std::string> {};

TEST_P(RuleJSONWithoutKey, IsRejectedNotDefaulted) {
  JSON json = toJSON(fullRule());
  ASSERT_EQ(json.erase(GetParam()), 1u);
  try {
    decodeRule(JSONReader(json));
    ADD_FAILURE() << "decoded without " << GetParam();
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), DecodingError::Kind::keyNotFound);
    EXPECT_EQ(error.description(), "No value associated with key \"" + GetParam() + "\".");
  }
}

INSTANTIATE_TEST_SUITE_P(EveryKey, RuleJSONWithoutKey,
                         ::testing::Values("id", "name", "decision", "keyFingerprints", "purpose",
                                           "hostKeys", "allowForwarded", "appIdentifiers",
                                           "directoryPrefixes", "gitHints"));

TEST(PolicyJSON, RoundTripsEveryField) {
  RequestOrigin origin = signedApp();
  origin.workingDirectory = "/work/app";
  origin.gitHint = GitHint::push;
  origin.claimedReason = "deploy";
  origin.claimedSeconds = -5;
  EXPECT_EQ(decodeRequestOrigin(JSONReader(toJSON(origin))), origin);

  Grant grant{kKey, RequestPurpose::login(kHost, "git"), "TEAM1:com.example.editor",
              Date{1795307100}};
  for (DateEncoding encoding : {DateEncoding::iso8601, DateEncoding::secondsSince1970})
    EXPECT_EQ(decodeGrant(JSONReader(toJSON(grant, encoding)), encoding), grant);
  EXPECT_EQ(toJSON(grant).at("until"), "2026-11-22T00:25:00Z");

  for (const RequestPurpose& purpose :
       {RequestPurpose::login(kHost, "git", {"SHA256:a", "SHA256:b"}),
        RequestPurpose::signature("git"), RequestPurpose::other()})
    EXPECT_EQ(decodeRequestPurpose(JSONReader(toJSON(purpose))), purpose);
}

// Decodes one value and writes it again, so that a case states the decoded value as JSON text.
using Recode = std::function<JSON(const JSONReader&)>;

const Recode kPurpose = [](const JSONReader& r) { return toJSON(decodeRequestPurpose(r)); };
const Recode kMatch = [](const JSONReader& r) { return toJSON(decodePurposeMatch(r)); };
const Recode kOrigin = [](const JSONReader& r) { return toJSON(decodeRequestOrigin(r)); };
const Recode kDecision = [](const JSONReader& r) { return toJSON(decodeDecision(r)); };
const Recode kGitHint = [](const JSONReader& r) { return toJSON(decodeGitHint(r)); };
const Recode kGrantSeconds = [](const JSONReader& r) {
  return toJSON(decodeGrant(r, DateEncoding::secondsSince1970), DateEncoding::secondsSince1970);
};
const Recode kRules = [](const JSONReader& r) {
  JSON json = JSON::array();
  for (const Rule& rule : decodeRules(r)) json.push_back(toJSON(rule));
  return json;
};

// The text of fullRule() with one value replaced.
std::string fullRuleWith(const char* key, const char* valueJSON) {
  JSON json = toJSON(fullRule());
  json[key] = parseJSON(valueJSON);
  return json.dump();
}

struct DecodeCase {
  Recode recode;
  std::string input;
  // The value written again, or the error as "kind path: description".
  std::string expected;
};

void PrintTo(const DecodeCase& c, std::ostream* out) { *out << c.input; }

class PolicyDecoding : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(PolicyDecoding, GivesValueOrExactError) {
  JSON document = parseJSON(GetParam().input);
  std::string outcome;
  try {
    outcome = GetParam().recode(JSONReader(document)).dump();
  } catch (const DecodingError& error) {
    outcome = std::string(error.kindName()) + " " + error.what();
  }
  EXPECT_EQ(outcome, GetParam().expected) << GetParam().input;
}

const char kInvalidKeyCount[] = "typeMismatch Invalid number of keys found, expected one.";

INSTANTIATE_TEST_SUITE_P(
    Cases, PolicyDecoding,
    ::testing::Values(
        DecodeCase{kPurpose, R"({"login":{"user":"git","forwardedVia":[]}})",
                   R"({"login":{"forwardedVia":[],"user":"git"}})"},
        DecodeCase{kPurpose, R"({"login":{"hostKey":null,"user":"git","forwardedVia":[]}})",
                   R"({"login":{"forwardedVia":[],"user":"git"}})"},
        DecodeCase{kPurpose, R"({"login":{},"other":{}})", kInvalidKeyCount},
        DecodeCase{kPurpose, R"({"unknown":{}})", kInvalidKeyCount},
        DecodeCase{kPurpose, R"({"login":{"forwardedVia":[]}})",
                   R"(keyNotFound login: No value associated with key "user".)"},
        DecodeCase{kPurpose, R"({"signature":{"namespace":"git"},"note":1})",
                   R"({"signature":{"namespace":"git"}})"},
        DecodeCase{kPurpose, R"({"other":[]})",
                   "typeMismatch other: Expected to decode an object but found array."},
        DecodeCase{kMatch, R"({"signature":{}})", R"({"signature":{}})"},
        DecodeCase{kMatch, R"({"any":{},"login":{}})", kInvalidKeyCount},
        DecodeCase{kMatch, R"({"other":{}})", R"({"other":{}})"},
        DecodeCase{kMatch, R"({"login":true})",
                   "typeMismatch login: Expected to decode an object but found boolean."},
        DecodeCase{kDecision, R"("askRemote")", R"("askRemote")"},
        DecodeCase{kGitHint, R"("pull")",
                   "dataCorrupted Cannot initialize GitHint from invalid String value pull"},
        DecodeCase{kOrigin,
                   R"({"appName":"ssh","appTeamID":null,"chainPaths":[],"x":1,)"
                   R"("unsignedPrograms":[]})",
                   R"({"appName":"ssh","chainPaths":[],"unsignedPrograms":[]})"},
        DecodeCase{kOrigin, R"({"appName":"ssh","chainPaths":[]})",
                   R"(keyNotFound No value associated with key "unsignedPrograms".)"},
        DecodeCase{kOrigin,
                   R"({"appName":"a","chainPaths":[],"unsignedPrograms":[],"claimedSeconds":1.5})",
                   "typeMismatch claimedSeconds: Expected to decode an integer but found number."},
        DecodeCase{kGrantSeconds,
                   R"({"keyFingerprint":"k","purpose":{"other":{}},"treeKey":"t","until":1.5})",
                   R"({"keyFingerprint":"k","purpose":{"other":{}},"treeKey":"t","until":1.5})"},
        DecodeCase{kRules, "[" + fullRuleWith("decision", R"("allowX")") + "]",
                   "dataCorrupted [0].decision: Cannot initialize Decision from invalid String "
                   "value allowX"},
        DecodeCase{kRules, "[" + fullRuleWith("gitHints", R"(["fetch","pull"])") + "]",
                   "dataCorrupted [0].gitHints[1]: Cannot initialize GitHint from invalid String "
                   "value pull"},
        DecodeCase{kRules, R"({})", "typeMismatch Expected to decode an array but found object."}));

}  // namespace
}  // namespace quorvane
