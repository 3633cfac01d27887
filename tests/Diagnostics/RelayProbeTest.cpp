#include <gtest/gtest.h>

#include "Diagnostics/Diagnostics.h"
#include "Diagnostics/SystemProbes.h"
#include "Platform/Clock.h"
#include "support/ScriptedHTTPServer.h"

namespace quorvane {
namespace {

using testing::httpDate;
using testing::RecordedRequest;
using testing::ScriptedAnswer;
using testing::ScriptedHTTPServer;

RelayClient clientOf(const ScriptedHTTPServer& server) {
  return RelayClient(RelayEndpoint{server.baseURL(), std::nullopt, {}});
}

// The relay check as doctor runs it: the real health request against a relay whose clock is
// `offset` seconds behind this computer's.
DiagnosticCheck checkAgainstRelayBehindBy(double offset) {
  ScriptedHTTPServer relay([&](const RecordedRequest& request) {
    if (request.method != "GET" || request.target != "/healthz") return ScriptedAnswer{404, {}, ""};
    return ScriptedAnswer{200, {{"Date", httpDate(-offset)}}, "ok"};
  });
  RelayHealth health = relayHealthOf(clientOf(relay));
  return checkRelay(health, SystemClock().now());
}

TEST(RelayProbe, AClockThirtySecondsOffPassesAndThirtyOneIsReported) {
  DiagnosticCheck same = checkAgainstRelayBehindBy(0);
  EXPECT_EQ(same.detail, "Online");
  EXPECT_EQ(same.level, DiagnosticCheck::Level::ok);
  // The header drops the relay's fraction of a second, so a relay 30 s behind reads as 30.x s.
  EXPECT_EQ(checkAgainstRelayBehindBy(30).detail, "Online");
  DiagnosticCheck off = checkAgainstRelayBehindBy(31);
  EXPECT_EQ(off.detail, "This computer's clock is off by 31 s. Remote approvals may fail.");
  EXPECT_EQ(off.level, DiagnosticCheck::Level::warning);
  EXPECT_EQ(checkAgainstRelayBehindBy(-3600).detail,
            "This computer's clock is off by 3599 s. Remote approvals may fail.");
}

TEST(RelayProbe, AnyOtherStatusOrNoAnswerIsOffline) {
  ScriptedHTTPServer failing([](const RecordedRequest&) { return ScriptedAnswer{503, {}, ""}; });
  RelayHealth health = relayHealthOf(clientOf(failing));
  EXPECT_EQ(health.kind, RelayHealth::Kind::offline);
  EXPECT_EQ(health.problem, "the relay answered with error 503");
  EXPECT_EQ(checkRelay(health, SystemClock().now()).detail,
            "Remote approval is offline. Approve on this computer instead.");

  std::string closedURL = failing.baseURL();
  failing.stop();
  health = relayHealthOf(RelayClient(RelayEndpoint{closedURL, std::nullopt, {}}));
  EXPECT_EQ(health.kind, RelayHealth::Kind::offline);
  EXPECT_EQ(health.problem, "the relay is not reachable. Check your internet connection.");
}

}  // namespace
}  // namespace quorvane
