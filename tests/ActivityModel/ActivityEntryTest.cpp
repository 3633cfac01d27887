#include <gtest/gtest.h>

#include <string>

#include "ActivityTestSupport.h"

namespace quorvane {
namespace {

using activitytest::loginEntry;

ActivityEntry fullEntry() {
  ActivityEntry entry = loginEntry(0);
  entry.forwardedVia = {"jump.example.com"};
  entry.note = "first \"login\"";
  entry.appIdentifier = "/usr/bin/ssh";
  return entry;
}

const char kFullEntryJSON[] =
    R"({"app":"app-0","appIdentifier":"/usr/bin/ssh","chain":["/usr/bin/ssh","/usr/bin/git",)"
    R"("/usr/bin/zsh"],"date":"2026-11-21T09:05:00Z","decidedBy":"user on this computer",)"
    R"("decision":"askLocal","forwardedVia":["jump.example.com"],"host":"host-0.example.com",)"
    R"("hostKeyFingerprint":"SHA256:host-key","hostVerified":true,"keyFingerprint":)"
    R"("SHA256:key-one","keyName":"Work key","note":"first \"login\"","outcome":"signed",)"
    R"("purpose":"login","workingDirectory":"/home/me/src"})";

TEST(ActivityEntryJSON, WritesTheSixteenKeysSortedAndReadsThemBack) {
  EXPECT_EQ(encodeActivityEntryText(fullEntry()), kFullEntryJSON);
  EXPECT_EQ(toJSON(fullEntry()).size(), 16u);
  EXPECT_EQ(decodeActivityEntryText(kFullEntryJSON), fullEntry());
}

TEST(ActivityEntryJSON, EntryWithoutKeyLeavesOutKeyFieldsAndRoundTrips) {
  ActivityEntry entry = fullEntry();
  entry.keyFingerprint.reset();
  entry.keyName.reset();
  JSON json = toJSON(entry);
  EXPECT_FALSE(json.contains("keyFingerprint"));
  EXPECT_FALSE(json.contains("keyName"));
  EXPECT_EQ(decodeActivityEntryText(json.dump()), entry);

  ActivityEntry bare;
  bare.date = Date{0};
  EXPECT_EQ(encodeActivityEntryText(bare),
            R"({"app":"","chain":[],"date":"1970-01-01T00:00:00Z","decidedBy":"","decision":"",)"
            R"("forwardedVia":[],"hostVerified":false,"outcome":"rejected","purpose":""})");
}

TEST(ActivityEntryJSON, EveryOutcomeRoundTrips) {
  for (auto outcome : {ActivityEntry::Outcome::signed_, ActivityEntry::Outcome::denied,
                       ActivityEntry::Outcome::expired, ActivityEntry::Outcome::failed,
                       ActivityEntry::Outcome::rejected, ActivityEntry::Outcome::purged}) {
    ActivityEntry entry = fullEntry();
    entry.outcome = outcome;
    EXPECT_EQ(decodeActivityEntryText(encodeActivityEntryText(entry)), entry) << rawValue(outcome);
  }
}

TEST(ActivityEntryJSON, InvalidUTF8IsReplacedNotThrown) {
  ActivityEntry entry = fullEntry();
  entry.app = "bad\xff";
  EXPECT_EQ(decodeActivityEntryText(encodeActivityEntryText(entry)).app, "bad\xef\xbf\xbd");
}

struct DecodeCase {
  const char* name;
  const char* key;
  const char* valueJSON;  // replaces the key's value; nullptr removes the key
  // "" when the entry decodes, else "kind path: description".
  const char* error;
};

class ActivityEntryDecoding : public ::testing::TestWithParam<DecodeCase> {};

std::string describe(const DecodingError& error) {
  static const char* const kKinds[] = {"typeMismatch", "valueNotFound", "keyNotFound",
                                       "dataCorrupted"};
  return std::string(kKinds[static_cast<int>(error.kind())]) + " " + error.codingPath() + ": " +
         error.description();
}

TEST_P(ActivityEntryDecoding, AcceptsOrRejectsWithTheTypedError) {
  JSON json = toJSON(fullEntry());
  if (GetParam().valueJSON)
    json[GetParam().key] = parseJSON(GetParam().valueJSON);
  else
    json.erase(GetParam().key);
  std::string error;
  try {
    decodeActivityEntryText(json.dump());
  } catch (const DecodingError& thrown) {
    error = describe(thrown);
  }
  EXPECT_EQ(error, GetParam().error);
}

const DecodeCase kDecodeCases[] = {
    {"UnknownOutcome", "outcome", R"("approved")",
     "dataCorrupted outcome: Cannot initialize Outcome from invalid String value approved"},
    {"OutcomeNotString", "outcome", "1",
     "typeMismatch outcome: Expected to decode a string but found number."},
    {"MissingDate", "date", nullptr, R"(keyNotFound : No value associated with key "date".)"},
    {"MissingPurpose", "purpose", nullptr,
     R"(keyNotFound : No value associated with key "purpose".)"},
    {"MissingHostVerified", "hostVerified", nullptr,
     R"(keyNotFound : No value associated with key "hostVerified".)"},
    {"MissingForwardedVia", "forwardedVia", nullptr,
     R"(keyNotFound : No value associated with key "forwardedVia".)"},
    {"MissingApp", "app", nullptr, R"(keyNotFound : No value associated with key "app".)"},
    {"MissingChain", "chain", nullptr, R"(keyNotFound : No value associated with key "chain".)"},
    {"MissingDecision", "decision", nullptr,
     R"(keyNotFound : No value associated with key "decision".)"},
    {"MissingDecidedBy", "decidedBy", nullptr,
     R"(keyNotFound : No value associated with key "decidedBy".)"},
    {"MissingOutcome", "outcome", nullptr,
     R"(keyNotFound : No value associated with key "outcome".)"},
    {"NullRequired", "app", "null", "valueNotFound app: Expected a value but found null instead."},
    {"NullOptionalIsAbsent", "note", "null", ""},
    {"MissingOptional", "hostKeyFingerprint", nullptr, ""},
    {"UnknownKeyIgnored", "addedLater", R"({"x":1})", ""},
    {"DateWithFraction", "date", R"("2026-11-21T09:05:00.5Z")",
     "dataCorrupted date: Expected date string to be ISO8601-formatted."},
    {"DateAsNumber", "date", "1795251900",
     "typeMismatch date: Expected to decode a string but found number."},
    {"ChainElementNotString", "chain", R"(["ssh", 2])",
     "typeMismatch chain[1]: Expected to decode a string but found number."},
    {"HostVerifiedAsString", "hostVerified", R"("true")",
     "typeMismatch hostVerified: Expected to decode a boolean but found string."},
    {"OptionalOfWrongType", "keyName", "[]",
     "typeMismatch keyName: Expected to decode a string but found array."},
};

INSTANTIATE_TEST_SUITE_P(Cases, ActivityEntryDecoding, ::testing::ValuesIn(kDecodeCases),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(ActivityEntryDecodingText, RejectsTextThatIsNotAnObject) {
  for (const char* text : {"", "[]", "\"entry\"", "{", "{\"date\":}"}) {
    EXPECT_THROW(decodeActivityEntryText(text), DecodingError) << text;
  }
}

}  // namespace
}  // namespace quorvane
