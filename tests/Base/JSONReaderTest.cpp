#include <gtest/gtest.h>

#include "Base/JSONReader.h"

namespace quorvane {
namespace {

DecodingError decodingErrorOf(const std::function<void()>& decode) {
  try {
    decode();
  } catch (const DecodingError& error) {
    return error;
  }
  ADD_FAILURE() << "no DecodingError thrown";
  return DecodingError::dataCorrupted("", "none");
}

TEST(JSONReader, RequiredKeysAreNeverDefaulted) {
  JSON document = parseJSON(R"({"present": 1, "nothing": null})");
  JSONReader reader(document, "rule");
  EXPECT_EQ(reader.required("present").int64(), 1);

  DecodingError missing = decodingErrorOf([&] { reader.required("absent"); });
  EXPECT_EQ(missing.kind(), DecodingError::Kind::keyNotFound);
  EXPECT_EQ(missing.codingPath(), "rule");

  DecodingError null = decodingErrorOf([&] { reader.required("nothing"); });
  EXPECT_EQ(null.kind(), DecodingError::Kind::valueNotFound);
  EXPECT_EQ(null.codingPath(), "rule.nothing");
}

TEST(JSONReader, OptionalKeysMayBeMissingOrNull) {
  JSON document = parseJSON(R"({"nothing": null, "name": "x"})");
  JSONReader reader(document);
  EXPECT_FALSE(reader.optional("absent").has_value());
  EXPECT_FALSE(reader.optional("nothing").has_value());
  EXPECT_EQ(reader.optional("name")->string(), "x");
}

TEST(JSONReader, WrongTypesAreTypeMismatches) {
  JSON document =
      parseJSON(R"({"flag": "yes", "list": {}, "count": 1.5, "huge": 18446744073709551615})");
  JSONReader reader(document);
  EXPECT_EQ(decodingErrorOf([&] { reader.required("flag").boolean(); }).kind(),
            DecodingError::Kind::typeMismatch);
  EXPECT_EQ(decodingErrorOf([&] { reader.required("list").strings(); }).kind(),
            DecodingError::Kind::typeMismatch);
  EXPECT_EQ(decodingErrorOf([&] { reader.required("count").int64(); }).kind(),
            DecodingError::Kind::typeMismatch);
  EXPECT_EQ(decodingErrorOf([&] { reader.required("huge").int64(); }).kind(),
            DecodingError::Kind::dataCorrupted);
  EXPECT_EQ(decodingErrorOf([&] { JSONReader(document).string(); }).kind(),
            DecodingError::Kind::typeMismatch);
}

TEST(JSONReader, CaseKeyedObjectsNeedExactlyOneKnownKey) {
  JSON one = parseJSON(R"({"login": {"user": "git"}, "unknown": 1})");
  auto [key, value] = JSONReader(one).singleCase({"login", "signature", "other"});
  EXPECT_EQ(key, "login");
  EXPECT_EQ(value.required("user").string(), "git");
  EXPECT_EQ(value.codingPath(), "login");

  for (const char* text : {R"({"login": {}, "other": {}})", R"({})", R"({"unknown": {}})"}) {
    JSON document = parseJSON(text);
    DecodingError error = decodingErrorOf([&] {
      JSONReader(document).singleCase({"login", "signature", "other"});
    });
    EXPECT_EQ(error.kind(), DecodingError::Kind::typeMismatch) << text;
    EXPECT_EQ(error.description(), "Invalid number of keys found, expected one.") << text;
  }
}

TEST(JSONReader, DatesFollowTheirEncoding) {
  JSON document = parseJSON(R"({"iso": "2026-11-22T00:25:00Z", "number": 1795307100.5})");
  JSONReader reader(document);
  EXPECT_EQ(reader.required("iso").date(DateEncoding::iso8601), Date{1795307100});
  EXPECT_EQ(reader.required("number").date(DateEncoding::secondsSince1970), Date{1795307100.5});
  EXPECT_EQ(decodingErrorOf([&] { reader.required("number").date(DateEncoding::iso8601); }).kind(),
            DecodingError::Kind::typeMismatch);
  EXPECT_EQ(encodeDate(Date{1795307100}, DateEncoding::iso8601), "2026-11-22T00:25:00Z");

  JSON outOfRange = parseJSON(R"([1e300, -1e300])");
  for (const JSONReader& value : JSONReader(outOfRange).array())
    EXPECT_EQ(decodingErrorOf([&] { value.date(DateEncoding::secondsSince1970); }).kind(),
              DecodingError::Kind::dataCorrupted);
}

TEST(JSONReader, ArraysReportTheElementPlace) {
  JSON document = parseJSON(R"({"paths": ["/a", 2]})");
  DecodingError error =
      decodingErrorOf([&] { JSONReader(document, "origin").required("paths").strings(); });
  EXPECT_EQ(error.codingPath(), "origin.paths[1]");
}

TEST(JSONReader, TextThatIsNotJSONIsDataCorrupted) {
  for (const char* text : {"", "{", "{\"a\":}", "[1,]", "\xff"})
    EXPECT_EQ(decodingErrorOf([&] { parseJSON(text); }).kind(), DecodingError::Kind::dataCorrupted)
        << text;
}

}  // namespace
}  // namespace quorvane
