#include <gtest/gtest.h>

#include "Base/Base64.h"
#include "RelayClient/RelayAnswers.h"
#include "RelayClient/RelayError.h"

namespace quorvane {
namespace {

SecureBytes secret(std::string_view text) { return SecureBytes(bytesOf(text)); }

std::string item(uint64_t seq, std::string_view data) {
  return "{\"seq\":" + std::to_string(seq) + ",\"data\":\"" + std::string(data) + "\"}";
}

std::string envelopeData(EnvelopeKind kind, std::string_view body) {
  return base64Encode(Envelope{kind, bytesOf(body)}.encode());
}

TEST(RelayAnswers, MailboxCreationGivesTheCredentialsAndIgnoresExtraKeys) {
  EXPECT_EQ(parseMailboxCreation(R"({"id":"m1","secret":"s","send_token":"t","ttl":900})"),
            (MailboxCredentials{"m1", secret("s"), secret("t")}));
  EXPECT_EQ(parseSendTokenCreation(R"({"send_token":"t2"})"), secret("t2"));
}

// Answers that must be refused as malformed, each with what is wrong with it.
class RelayMalformedAnswer : public ::testing::TestWithParam<std::pair<const char*, const char*>> {
};

TEST_P(RelayMalformedAnswer, IsRefusedWithMalformed) {
  const std::string answer = GetParam().second;
  const std::string kind = GetParam().first;
  try {
    if (kind == "creation") parseMailboxCreation(answer);
    if (kind == "token") parseSendTokenCreation(answer);
    if (kind == "fetch") parseFetchAnswer(answer);
    FAIL() << "accepted " << answer;
  } catch (const RelayError& error) {
    EXPECT_EQ(error.kind(), RelayErrorKind::malformed);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Answers, RelayMalformedAnswer,
    ::testing::Values(
        std::pair{"creation", ""}, std::pair{"creation", "not json"}, std::pair{"creation", "[]"},
        std::pair{"creation", R"({"id":"m","secret":"s"})"},
        std::pair{"creation", R"({"id":"m","secret":"s","sendToken":"t"})"},  // not snake case
        std::pair{"creation", R"({"id":1,"secret":"s","send_token":"t"})"},
        std::pair{"creation", R"({"id":"","secret":"s","send_token":"t"})"},
        std::pair{"creation", R"({"id":"m","secret":null,"send_token":"t"})"},
        std::pair{"creation", "{\"id\":\"m\",\"secret\":\"\xff\",\"send_token\":\"t\"}"},
        std::pair{"token", "{}"}, std::pair{"token", R"({"send_token":""})"},
        std::pair{"token", R"({"send_token":["t"]})"}, std::pair{"fetch", "{}"},
        std::pair{"fetch", R"({"messages":{}})"}, std::pair{"fetch", R"({"messages":[1]})"},
        std::pair{"fetch", R"({"messages":[{"seq":1}]})"},
        std::pair{"fetch", R"({"messages":[{"data":"AQ=="}]})"},
        std::pair{"fetch", R"({"messages":[{"seq":-1,"data":"AQ=="}]})"},
        std::pair{"fetch", R"({"messages":[{"seq":1.5,"data":"AQ=="}]})"},
        std::pair{"fetch", R"({"messages":[{"seq":"1","data":"AQ=="}]})"},
        std::pair{"fetch", R"({"messages":[{"seq":18446744073709551616,"data":"AQ=="}]})"},
        std::pair{"fetch", R"({"messages":[{"seq":1,"data":1}]})"},
        std::pair{"fetch", R"({"messages":[]} trailing)"}));

TEST(RelayAnswers, FetchAnswerKeepsTheOrderAndTheFullSeqRange) {
  auto items = parseFetchAnswer(R"({"messages":[{"seq":18446744073709551615,"data":"AQ=="},)"
                                R"({"seq":0,"data":""}],"more":false})");
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0], (FetchedItem{18446744073709551615u, "AQ=="}));
  EXPECT_EQ(items[1], (FetchedItem{0, ""}));
}

TEST(RelayFetchRules, TheCursorRisesToTheLargestSeqEvenWhenItemsArriveOutOfOrder) {
  RelayCursors cursors;
  auto messages = acceptFetchedItems(
      parseFetchAnswer("{\"messages\":[" +
                       item(5, envelopeData(EnvelopeKind::approvalRequest, "a")) + "," +
                       item(9, envelopeData(EnvelopeKind::resolved, "b")) + "," +
                       item(7, envelopeData(EnvelopeKind::unpair, "")) + "]}"),
      cursors, "m1");
  EXPECT_EQ(cursors.read("m1"), 9u);
  EXPECT_EQ(cursors.read("other"), 0u);
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0], (RelayMessage{5, {EnvelopeKind::approvalRequest, bytesOf("a")}}));
  EXPECT_EQ(messages[1], (RelayMessage{9, {EnvelopeKind::resolved, bytesOf("b")}}));
  EXPECT_EQ(messages[2], (RelayMessage{7, {EnvelopeKind::unpair, {}}}));
}

TEST(RelayFetchRules, AnEmptyListLeavesTheCursorAndItNeverMovesBack) {
  RelayCursors cursors;
  cursors.raise("m1", 12);
  EXPECT_TRUE(acceptFetchedItems({}, cursors, "m1").empty());
  EXPECT_EQ(cursors.read("m1"), 12u);
  auto messages =
      acceptFetchedItems({{3, envelopeData(EnvelopeKind::pairingOffer, "x")}}, cursors, "m1");
  EXPECT_EQ(messages.size(), 1u);  // delivered: the relay's answer is trusted for its content
  EXPECT_EQ(cursors.read("m1"), 12u);
}

// Items that are dropped while the rest is delivered and the cursor still moves past them.
class RelaySkippedItem : public ::testing::TestWithParam<std::pair<const char*, std::string>> {};

TEST_P(RelaySkippedItem, IsDroppedButCountsForTheCursor) {
  RelayCursors cursors;
  const std::string good = envelopeData(EnvelopeKind::approvalResponse, "ok");
  auto messages = acceptFetchedItems({{1, good}, {8, GetParam().second}, {2, good}}, cursors, "m1");
  EXPECT_EQ(cursors.read("m1"), 8u);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].seq, 1u);
  EXPECT_EQ(messages[1].seq, 2u);
}

INSTANTIATE_TEST_SUITE_P(Items, RelaySkippedItem,
                         ::testing::Values(std::pair{"notBase64", std::string("%%%")},
                                           std::pair{"base64WithSpace", std::string("AQ ==")},
                                           std::pair{"empty", std::string("")},
                                           std::pair{"kind0", base64Encode(Bytes{0, 1, 2})},
                                           std::pair{"kind9", base64Encode(Bytes{9})},
                                           std::pair{"kind255", base64Encode(Bytes{255, 0})}),
                         [](const auto& test) { return std::string(test.param.first); });

TEST(RelayFetchRules, EveryKnownKindIsDeliveredWithItsBody) {
  for (uint8_t kind = 1; kind <= 8; ++kind) {
    RelayCursors cursors;
    auto messages = acceptFetchedItems({{kind, base64Encode(Bytes{kind, 0xAA})}}, cursors, "m");
    ASSERT_EQ(messages.size(), 1u) << int(kind);
    EXPECT_EQ(static_cast<uint8_t>(messages[0].envelope.kind), kind);
    EXPECT_EQ(messages[0].envelope.body, Bytes{0xAA});
  }
}

TEST(MailboxCredentials, StoredJSONUsesTheFieldNamesAndRoundTrips) {
  MailboxCredentials credentials{"m1", secret("s3cret"), secret("t0ken")};
  JSON json = toJSON(credentials);
  EXPECT_EQ(json, JSON::parse(R"({"id":"m1","secret":"s3cret","sendToken":"t0ken"})"));
  EXPECT_EQ(decodeMailboxCredentials(JSONReader(json)), credentials);
  MailboxAddress address = addressOf(credentials);
  EXPECT_EQ(toJSON(address), JSON::parse(R"({"id":"m1","sendToken":"t0ken"})"));
  EXPECT_EQ(decodeMailboxAddress(JSONReader(toJSON(address))), address);
  EXPECT_THROW(decodeMailboxAddress(JSONReader(JSON::parse(R"({"id":"m1"})"))), DecodingError);
  EXPECT_THROW(decodeMailboxCredentials(JSONReader(JSON::parse(R"({"id":"m","secret":1})"))),
               DecodingError);
}

}  // namespace
}  // namespace quorvane
