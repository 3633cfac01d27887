#include <gtest/gtest.h>

#include "ApproverSession/ApproverInbox.h"
#include "ApproverSession/InboxFile.h"
#include "Base/Base64.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/SealedFile.h"
#include "Platform/InMemoryKeychain.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

ApproverInbox sampleInbox() {
  ApproverInbox inbox;
  inbox.cursors[{"https://relay.example/", "box-1"}] = 42;
  ApprovalRequestMessage request;
  request.requestID = Bytes{1, 2, 3};
  request.macID = Bytes(32, 9);
  request.expiresAt = 1'800'000'060'000;
  request.purpose = ApprovalPurpose::signature("git");
  request.scopes = {qap::ApprovalScope::once};
  inbox.addOpen({request, Date{1'800'000'000}});
  inbox.close(Bytes{4, 5}, 1'800'000'030'000, ClosedReason::settledElsewhere);
  inbox.recordFailure(Date{1'800'000'001}, "badSignature");
  return inbox;
}

TEST(ApproverInboxTest, RoundTripsThroughJSON) {
  const ApproverInbox inbox = sampleInbox();
  const JSON json = toJSON(inbox);
  EXPECT_EQ(decodeApproverInbox(JSONReader(json)), inbox);
  EXPECT_EQ(decodeApproverInbox(JSONReader(toJSON(ApproverInbox{}))), ApproverInbox{});
}

// Each corruption of a valid inbox, applied to its JSON, must be refused with DecodingError.
TEST(ApproverInboxTest, RefusesEachCorruption) {
  const std::vector<std::pair<const char*, std::function<void(JSON&)>>> corruptions = {
      {"missing list", [](JSON& j) { j.erase("closed"); }},
      {"negative seq", [](JSON& j) { j["cursors"][0]["seq"] = -1; }},
      {"fractional seq", [](JSON& j) { j["cursors"][0]["seq"] = 1.5; }},
      {"message not base64", [](JSON& j) { j["open"][0]["message"] = "***"; }},
      {"message not a request",
       [](JSON& j) {
         j["open"][0]["message"] = base64Encode(Bytes{0, 0, 0, 2});
       }},
      {"bad date", [](JSON& j) { j["open"][0]["receivedAt"] = "yesterday"; }},
      {"id not hex", [](JSON& j) { j["closed"][0]["requestID"] = "xyz"; }},
      {"unknown reason", [](JSON& j) { j["closed"][0]["reason"] = "forgotten"; }},
      {"too many failures",
       [](JSON& j) {
         for (int i = 0; i < 30; ++i) j["failures"].push_back(j["failures"][0]);
       }},
      {"not an object", [](JSON& j) { j = JSON::array(); }},
  };
  for (const auto& [name, corrupt] : corruptions) {
    JSON json = toJSON(sampleInbox());
    corrupt(json);
    EXPECT_THROW(decodeApproverInbox(JSONReader(json)), DecodingError) << name;
  }
}

TEST(ApproverInboxTest, SweepExpiresOpenRequestsAndLaterForgetsThem) {
  ApproverInbox inbox = sampleInbox();
  EXPECT_TRUE(inbox.sweep(Date{1'800'000'059}).empty());
  const std::vector<InboxRequest> expired = inbox.sweep(Date{1'800'000'060});
  ASSERT_EQ(expired.size(), 1u);
  EXPECT_TRUE(inbox.open.empty());
  ASSERT_NE(inbox.findClosed(Bytes{1, 2, 3}), nullptr);
  EXPECT_EQ(inbox.findClosed(Bytes{1, 2, 3})->reason, ClosedReason::expired);
  inbox.sweep(Date{1'800'000'060 + ApproverInbox::kClosedKeptSeconds + 1});
  EXPECT_TRUE(inbox.closed.empty());
}

TEST(ApproverInboxTest, KeepsOnlyTheNewestEntriesPastTheLimits) {
  ApproverInbox inbox;
  for (size_t i = 0; i <= ApproverInbox::kOpenLimit; ++i) {
    ApprovalRequestMessage request;
    request.requestID = Bytes{static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    inbox.addOpen({request, Date{}});
  }
  for (size_t i = 0; i <= ApproverInbox::kFailuresKept; ++i)
    inbox.recordFailure(Date{}, std::to_string(i));
  EXPECT_EQ(inbox.open.size(), ApproverInbox::kOpenLimit);
  EXPECT_EQ(inbox.open.front().request.requestID, (Bytes{0, 1}));
  EXPECT_EQ(inbox.failures.size(), ApproverInbox::kFailuresKept);
  EXPECT_EQ(inbox.failures.front().failure, "1");
}

TEST(InboxFileTest, ADamagedFileStartsAfreshAndIsReplacedOnTheNextChange) {
  testing::TemporaryDirectory folder;
  SupportState support{std::make_shared<InMemoryKeychain>(),
                       std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))), folder.path()};
  EXPECT_EQ(readInbox(support), ApproverInbox{});
  updateInbox(support, [](ApproverInbox& inbox) { inbox = sampleInbox(); });
  EXPECT_EQ(readInbox(support), sampleInbox());

  testing::writeFile(folder.path() / "approver-inbox.json", "{\"payload\": 1}");
  EXPECT_EQ(readInbox(support), ApproverInbox{});
  updateInbox(support, [](ApproverInbox& inbox) { inbox.recordFailure(Date{}, "malformed"); });
  EXPECT_EQ(readInbox(support).failures.size(), 1u);
}

}  // namespace
}  // namespace quorvane
