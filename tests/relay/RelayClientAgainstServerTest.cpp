// The system's own relay client (libcurl) against the real quorvane-relay over HTTPS with a test
// CA: every operation of the mailbox API end to end, so that the two halves cannot drift apart.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>

#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayError.h"
#include "relay/RelayProcess.h"
#include "support/TestCertificateAuthority.h"
#include "support/TestSupport.h"

namespace quorvane::testing {
namespace {

using namespace std::chrono_literals;

class RelayClientAgainstServer : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(certificates_.make("relay"));
    relay_ = std::make_unique<RelayProcess>(
        std::vector<std::string>{"--listen", "127.0.0.1:0", "--tls-cert",
                                 certificates_.certificate().string(), "--tls-key",
                                 certificates_.key().string(), "--db",
                                 (folder_.path() / "relay.sqlite").string(), "--max-wait", "5"},
        folder_.path() / "relay.log");
    RelayEndpoint endpoint;
    endpoint.baseURL = "https://127.0.0.1:" + std::to_string(relay_->port()) + "/";
    endpoint.caFile = certificates_.ca();
    client_ = std::make_unique<RelayClient>(endpoint);
  }

  static int statusOf(const std::function<void()>& operation) {
    try {
      operation();
    } catch (const RelayError& error) {
      return error.kind() == RelayErrorKind::http ? error.status() : -1;
    }
    return 0;
  }

  TemporaryDirectory folder_;
  TestCertificateAuthority certificates_;
  std::unique_ptr<RelayProcess> relay_;
  std::unique_ptr<RelayClient> client_;
};

TEST_F(RelayClientAgainstServer, EveryOperationWorksEndToEnd) {
  RelayHealthAnswer health = client_->health();
  EXPECT_EQ(health.status, 200);
  EXPECT_TRUE(health.date.has_value());

  MailboxCredentials mine = client_->createMailbox(false);
  MailboxCredentials pairing = client_->createMailbox(true);
  EXPECT_NE(mine.id, pairing.id);
  SecureBytes peerToken = client_->createSendToken(mine);
  const Envelope request{EnvelopeKind::approvalRequest, bytesOf("sealed request")};
  client_->send({mine.id, peerToken}, request, /*push=*/true);
  client_->registerPushToken(mine, {"00ff", "com.tallowmere.quorvane", false});

  std::vector<RelayMessage> first = client_->fetch(mine, false);
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(first[0].seq, 1u);
  EXPECT_EQ(first[0].envelope, request);
  EXPECT_TRUE(client_->fetch(mine, false).empty()) << "the cursor moved past it";

  // A waiting fetch is answered by the next send.
  const Envelope response{EnvelopeKind::approvalResponse, bytesOf("sealed response")};
  auto waiting = std::async(std::launch::async, [&] { return client_->fetch(mine, true); });
  std::this_thread::sleep_for(200ms);
  client_->send({mine.id, mine.sendToken}, response, false);
  ASSERT_EQ(waiting.wait_for(4s), std::future_status::ready);
  std::vector<RelayMessage> woken = waiting.get();
  ASSERT_EQ(woken.size(), 1u);
  EXPECT_EQ(woken[0].seq, 2u);
  EXPECT_EQ(woken[0].envelope, response);

  client_->revokeSendToken(mine, peerToken);
  client_->revokeSendToken(mine, peerToken);  // already gone: 404 counts as done
  EXPECT_EQ(statusOf([&] { client_->send({mine.id, peerToken}, request, false); }), 404);

  client_->deleteMailbox(mine);
  client_->deleteMailbox(mine);  // already gone
  EXPECT_EQ(statusOf([&] { client_->fetch(mine, false); }), 404);
  client_->deleteMailbox(pairing);
}

}  // namespace
}  // namespace quorvane::testing
