#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "RelayClient/InMemoryRelay.h"
#include "RelayClient/MailboxPoller.h"
#include "RelayClient/PollBackoff.h"
#include "RelayClient/RelayTexts.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::eventually;

Envelope envelope(EnvelopeKind kind, std::string_view body) { return {kind, bytesOf(body)}; }

TEST(PollBackoff, DoublesUpTo30SecondsAndStartsAgainAfterASuccess) {
  PollBackoff backoff;
  std::vector<double> delays;
  for (int i = 0; i < 8; ++i) delays.push_back(backoff.delayAfterFailure());
  EXPECT_EQ(delays, (std::vector<double>{1, 2, 4, 8, 16, 30, 30, 30}));
  backoff.succeeded();
  EXPECT_EQ(backoff.delayAfterFailure(), 1);
  EXPECT_EQ(backoff.delayAfterFailure(), 2);
}

TEST(RelayTexts, AreTheFixedSentences) {
  EXPECT_EQ(relayFailureText(RelayError::transport("Couldn't connect to server")),
            "the relay is not reachable. Check your internet connection.");
  EXPECT_EQ(relayFailureText(RelayError::http(503)), "the relay answered with error 503");
  EXPECT_EQ(relayFailureText(RelayError::malformed()), "the relay's answer could not be read.");
  EXPECT_EQ(kPairingRelayFailureText,
            "No connection to the Quorvane relay. Check your internet connection.");
  EXPECT_EQ(RelayError::http(503).kindName(), "http");
  EXPECT_EQ(RelayError::http(503).status(), 503);
}

TEST(InMemoryRelay, DeliversInOrderOnceAndRefusesForeignCredentials) {
  InMemoryRelay relay;
  MailboxCredentials mac = relay.createMailbox(false);
  MailboxCredentials device = relay.createMailbox(true);
  EXPECT_TRUE(relay.ephemeral(device.id));
  EXPECT_FALSE(relay.ephemeral(mac.id));
  relay.send(addressOf(mac), envelope(EnvelopeKind::approvalResponse, "yes"), false);
  relay.send(addressOf(mac), envelope(EnvelopeKind::resolved, ""), true);
  EXPECT_EQ(relay.pushedSends(), 1u);
  auto first = relay.fetch(mac, false);
  ASSERT_EQ(first.size(), 2u);
  EXPECT_EQ(first[0], (RelayMessage{1, envelope(EnvelopeKind::approvalResponse, "yes")}));
  EXPECT_EQ(first[1].seq, 2u);
  EXPECT_TRUE(relay.fetch(mac, false).empty());
  EXPECT_EQ(relay.stored(mac.id).size(), 2u);  // fetching never deletes

  MailboxCredentials stolen{mac.id, device.secret, device.sendToken};
  try {
    relay.fetch(stolen, false);
    FAIL();
  } catch (const RelayError& error) {
    EXPECT_EQ(error, RelayError::http(403));
  }
  EXPECT_THROW(relay.send({mac.id, device.sendToken}, envelope(EnvelopeKind::unpair, ""), false),
               RelayError);
}

TEST(InMemoryRelay, RevokedTokensAndDeletedMailboxesAsTheRelayTreatsThem) {
  InMemoryRelay relay;
  MailboxCredentials mac = relay.createMailbox(false);
  SecureBytes extra = relay.createSendToken(mac);
  relay.send({mac.id, extra}, envelope(EnvelopeKind::approvalResponse, "1"), false);
  relay.revokeSendToken(mac, extra);
  relay.revokeSendToken(mac, extra);  // already gone: success
  EXPECT_THROW(relay.send({mac.id, extra}, envelope(EnvelopeKind::approvalResponse, "2"), false),
               RelayError);
  relay.registerPushToken(mac, {"push-token", "com.tallowmere.quorvane.approver", true});
  EXPECT_EQ(relay.pushRegistration(mac.id)->topic, "com.tallowmere.quorvane.approver");
  relay.deleteMailbox(mac);
  EXPECT_FALSE(relay.exists(mac.id));
  relay.deleteMailbox(mac);  // already gone: success
}

TEST(InMemoryRelay, AWaitingFetchIsWokenBySendOrEndsWithItsWaitOrItsStop) {
  InMemoryRelay relay(0.2);
  MailboxCredentials mac = relay.createMailbox(false);
  EXPECT_TRUE(relay.fetch(mac, true).empty());  // the relay's wait ends

  std::vector<RelayMessage> woken;
  InMemoryRelay patient(30);
  MailboxCredentials box = patient.createMailbox(false);
  std::thread waiter([&] { woken = patient.fetch(box, true); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  patient.send(addressOf(box), envelope(EnvelopeKind::approvalRequest, "r"), false);
  waiter.join();
  ASSERT_EQ(woken.size(), 1u);

  std::stop_source stop;
  std::optional<RelayError> cancelled;
  std::thread canceller([&] {
    try {
      patient.fetch(box, true, stop.get_token());
    } catch (const RelayError& error) {
      cancelled = error;
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  stop.request_stop();
  canceller.join();
  ASSERT_TRUE(cancelled);
  EXPECT_EQ(cancelled->description(), kRelayCancelledDescription);
}

TEST(MailboxPoller, BacksOffAfterFailuresAndHandsOnMessagesAfterASuccess) {
  InMemoryRelay relay(0.05);
  MailboxCredentials mac = relay.createMailbox(false);
  relay.send(addressOf(mac), envelope(EnvelopeKind::approvalResponse, "a"), false);
  for (int i = 0; i < 7; ++i) relay.failNext(RelayError::transport("offline"));

  std::stop_source stop;
  std::vector<double> slept;
  std::vector<RelayMessage> delivered;
  int failuresSeen = 0;
  // After the success a second run of failures starts the sequence at 1 s again.
  auto sleep = [&](double seconds, std::stop_token) {
    slept.push_back(seconds);
    return true;
  };
  PollHandlers handlers{[&](const RelayMessage& message) {
                          delivered.push_back(message);
                          relay.failNext(RelayError::http(500));
                          relay.failNext(RelayError::http(500));
                        },
                        [&](const RelayError&, double) {
                          if (++failuresSeen == 9) stop.request_stop();
                        }};
  pollMailbox(relay, mac, stop.get_token(), handlers, sleep);
  EXPECT_EQ(slept, (std::vector<double>{1, 2, 4, 8, 16, 30, 30, 1, 2}));
  ASSERT_EQ(delivered.size(), 1u);
  EXPECT_EQ(delivered[0].envelope, envelope(EnvelopeKind::approvalResponse, "a"));
}

TEST(MailboxPoller, StopsPromptlyWhileWaitingOrSleeping) {
  InMemoryRelay relay(30);
  MailboxCredentials mac = relay.createMailbox(false);
  std::stop_source waiting;
  std::atomic<bool> returned = false;
  std::thread poller([&] {
    pollMailbox(relay, mac, waiting.get_token(), {});
    returned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  waiting.request_stop();
  EXPECT_TRUE(eventually([&] { return returned.load(); }, std::chrono::seconds(2)));
  poller.join();

  std::stop_source sleeping;
  EXPECT_TRUE(std::async(std::launch::async, [&] {
                std::thread stopper([&] {
                  std::this_thread::sleep_for(std::chrono::milliseconds(50));
                  sleeping.request_stop();
                });
                bool completed = sleepUnlessStopped(30, sleeping.get_token());
                stopper.join();
                return !completed;
              }).wait_for(std::chrono::seconds(2)) == std::future_status::ready);
}

}  // namespace
}  // namespace quorvane
