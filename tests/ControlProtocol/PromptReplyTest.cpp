#include <gtest/gtest.h>

#include "Base/DecodingError.h"
#include "ControlProtocol/PromptReply.h"

namespace quorvane {
namespace {

std::string answerOf(std::string_view line) {
  PromptReply reply = parsePromptReply(bytesOf(line));
  EXPECT_FALSE(reply.cancelled);
  return std::string(reply.answer.view().begin(), reply.answer.view().end());
}

TEST(PromptReply, ReadsBothFormsWithEscapesSpacesAndEitherKeyOrder) {
  EXPECT_TRUE(parsePromptReply(bytesOf(R"({"message":"promptCancel"})")).cancelled);
  EXPECT_EQ(answerOf(R"({"message":"promptAnswer","answer":"open sesame"})"), "open sesame");
  EXPECT_EQ(answerOf(R"( { "answer" : "" , "message" : "promptAnswer" } )"), "");
  EXPECT_EQ(answerOf(R"({"message":"promptAnswer","answer":"\"\\\/\b\f\n\r\t\u00e9\ud83d\ude00"})"),
            "\"\\/\b\f\n\r\t\xc3\xa9\xf0\x9f\x98\x80");
  EXPECT_EQ(answerOf("{\"message\":\"promptAnswer\",\"answer\":\"\xff\xfe\"}"), "\xff\xfe");
}

TEST(PromptReply, RefusesEveryOtherLine) {
  const char* refused[] = {
      R"({"message":"promptAnswer"})",
      R"({"message":"promptCancel","answer":"x"})",
      R"({"message":"answer","answer":"x"})",
      R"({"message":"promptAnswer","answer":"a","answer":"b"})",
      R"({"message":"promptAnswer","message":"promptAnswer","answer":"b"})",
      R"({"message":"promptAnswer","answer":"x","approve":true})",
      R"({"message":"promptAnswer","answer":5})",
      R"({"message":"promptAnswer","answer":"x"} x)",
      R"({"message":"promptAnswer","answer":"\x"})",
      R"({"message":"promptAnswer","answer":"\u12"})",
      R"({"message":"promptAnswer","answer":"\udc00"})",
      R"({"message":"promptAnswer","answer":"\ud800x"})",
      R"({"message":"promptAnswer","answer":"\ud800\u0041"})",
      R"({"message":"promptAnswer",})",
      R"({})",
      R"([])",
      "{\"message\":\"promptAnswer\",\"answer\":\"a\tb\"}",
      "",
  };
  for (const char* line : refused)
    EXPECT_THROW(parsePromptReply(bytesOf(line)), DecodingError) << line;
  EXPECT_THROW(parsePromptReply(Bytes(kMaxPromptReplyLength + 1, ' ')), DecodingError);
}

TEST(PromptReply, EncodedAnswersReadBackAndEveryTruncationIsRefused) {
  const std::string tricky = std::string("pa\"ss\\w\0rd\n\x7f\x01\xc3\xa9 end", 17);
  SecureBytes line = encodePromptAnswer(bytesOf(tricky));
  ASSERT_EQ(line.view().back(), '\n');
  const ByteView body = line.view().first(line.size() - 1);
  EXPECT_EQ(answerOf(std::string(body.begin(), body.end())), tricky);
  for (size_t length = 0; length < body.size(); ++length)
    EXPECT_THROW(parsePromptReply(body.first(length)), DecodingError) << length;
  EXPECT_TRUE(parsePromptReply(
                  bytesOf(std::string(kPromptCancelLine.substr(0, kPromptCancelLine.size() - 1))))
                  .cancelled);
}

}  // namespace
}  // namespace quorvane
