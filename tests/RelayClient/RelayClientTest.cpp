#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "RelayClient/HTTPExchange.h"
#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayError.h"
#include "support/ScriptedHTTPServer.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::eventually;
using testing::RecordedRequest;
using testing::ScriptedAnswer;
using testing::ScriptedHTTPServer;

SecureBytes secret(std::string_view text) { return SecureBytes(bytesOf(text)); }

const MailboxCredentials kMailbox{"m-1", secret("owner-secret"), secret("own-send-token")};
const MailboxAddress kPeer{"peer box/2", secret("peer-send-token")};
const Envelope kEnvelope{EnvelopeKind::approvalRequest, Bytes{0x00, 0xFF, 0x0D, 0x0A}};

RelayClient clientOf(const ScriptedHTTPServer& server, RelayTimeouts timeouts = {}) {
  return RelayClient(RelayEndpoint{server.baseURL(), std::nullopt, timeouts});
}

RelayErrorKind failureKind(const std::function<void()>& operation) {
  try {
    operation();
  } catch (const RelayError& error) {
    return error.kind();
  }
  ADD_FAILURE() << "no RelayError";
  return RelayErrorKind::malformed;
}

// One operation of the mailbox API: how to call it, the request it must send, and the answer
// that makes it succeed.
struct Operation {
  const char* name;
  std::function<void(RelayClient&)> call;
  std::string method, target;
  std::optional<std::string> authorization;
  std::string body;
  std::set<int> accepted;
  std::string answerBody;
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

const char kCreated[] = R"({"id":"m-9","secret":"s","send_token":"t"})";
const char kNoMessages[] = R"({"messages":[]})";

std::vector<Operation> operations() {
  return {
      {"createMailbox",
       [](RelayClient& c) { c.createMailbox(false); },
       "POST",
       "/v1/mailbox",
       std::nullopt,
       "",
       {201},
       kCreated},
      {"createEphemeralMailbox",
       [](RelayClient& c) { c.createMailbox(true); },
       "POST",
       "/v1/mailbox?ephemeral=1",
       std::nullopt,
       "",
       {201},
       kCreated},
      {"createSendToken",
       [](RelayClient& c) { c.createSendToken(kMailbox); },
       "POST",
       "/v1/mailbox/m-1/send-tokens",
       "Bearer owner-secret",
       "",
       {201},
       R"({"send_token":"t"})"},
      {"revokeSendToken",
       [](RelayClient& c) { c.revokeSendToken(kMailbox, secret("to\"ken")); },
       "DELETE",
       "/v1/mailbox/m-1/send-tokens",
       "Bearer owner-secret",
       R"({"send_token":"to\"ken"})",
       {204, 404},
       ""},
      {"registerPushToken",
       [](RelayClient& c) {
         c.registerPushToken(kMailbox, {"push-1", "com.example.topic", true});
       },
       "POST",
       "/v1/mailbox/m-1/push-token",
       "Bearer owner-secret",
       R"({"production":true,"token":"push-1","topic":"com.example.topic"})",
       {204},
       ""},
      {"send",
       [](RelayClient& c) { c.send(kPeer, kEnvelope, false); },
       "POST",
       "/v1/mailbox/peer%20box%2F2/messages",
       "Bearer peer-send-token",
       std::string("\x02\x00\xFF\r\n", 5),
       {202},
       ""},
      {"sendWithPush",
       [](RelayClient& c) { c.send(kPeer, kEnvelope, true); },
       "POST",
       "/v1/mailbox/peer%20box%2F2/messages?push=1",
       "Bearer peer-send-token",
       std::string("\x02\x00\xFF\r\n", 5),
       {202},
       ""},
      {"fetch",
       [](RelayClient& c) { c.fetch(kMailbox, false); },
       "GET",
       "/v1/mailbox/m-1/messages?after=0",
       "Bearer owner-secret",
       "",
       {200},
       kNoMessages},
      {"waitingFetch",
       [](RelayClient& c) { c.fetch(kMailbox, true); },
       "GET",
       "/v1/mailbox/m-1/messages?after=0&wait=1",
       "Bearer owner-secret",
       "",
       {200},
       kNoMessages},
      {"deleteMailbox",
       [](RelayClient& c) { c.deleteMailbox(kMailbox); },
       "DELETE",
       "/v1/mailbox/m-1",
       "Bearer owner-secret",
       "",
       {204, 404},
       ""},
  };
}

class RelayOperation : public ::testing::TestWithParam<Operation> {};

TEST_P(RelayOperation, SendsExactlyItsRequest) {
  const Operation& operation = GetParam();
  ScriptedHTTPServer server([&](const RecordedRequest&) {
    return ScriptedAnswer{*operation.accepted.begin(), {}, operation.answerBody};
  });
  RelayClient client = clientOf(server);
  operation.call(client);
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  const RecordedRequest& request = requests[0];
  EXPECT_EQ(request.method, operation.method);
  EXPECT_EQ(request.target, operation.target);
  EXPECT_EQ(request.header("authorization"), operation.authorization);
  EXPECT_EQ(request.body, operation.body);
  EXPECT_EQ(request.header("content-type"), std::nullopt);
  EXPECT_EQ(request.header("expect"), std::nullopt);
  // Requests with a body say how long it is; POSTs say so even when it is empty.
  if (!operation.body.empty() || operation.method == "POST") {
    EXPECT_EQ(request.header("content-length"), std::to_string(operation.body.size()));
  }
}

TEST_P(RelayOperation, AcceptsExactlyItsStatusSet) {
  const Operation& operation = GetParam();
  std::atomic<int> answerStatus = 0;
  ScriptedHTTPServer server([&](const RecordedRequest&) {
    return ScriptedAnswer{answerStatus.load(), {}, operation.answerBody};
  });
  RelayClient client = clientOf(server);
  for (int status : {200, 201, 202, 204, 400, 401, 403, 404, 413, 429, 500, 503}) {
    answerStatus = status;
    if (operation.accepted.contains(status)) {
      EXPECT_NO_THROW(operation.call(client)) << status;
      continue;
    }
    try {
      operation.call(client);
      ADD_FAILURE() << "status " << status << " was accepted";
    } catch (const RelayError& error) {
      EXPECT_EQ(error, RelayError::http(status));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(MailboxAPI, RelayOperation, ::testing::ValuesIn(operations()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(RelayClient, CreationAnswersBecomeCredentials) {
  ScriptedHTTPServer server([](const RecordedRequest& request) {
    if (request.target.ends_with("send-tokens"))
      return ScriptedAnswer{201, {}, R"({"send_token":"t2"})"};
    return ScriptedAnswer{201, {}, R"({"id":"m-9","secret":"s","send_token":"t"})"};
  });
  RelayClient client = clientOf(server);
  EXPECT_EQ(client.createMailbox(false), (MailboxCredentials{"m-9", secret("s"), secret("t")}));
  EXPECT_EQ(client.createSendToken(kMailbox), secret("t2"));
}

TEST(RelayClient, FetchAsksAfterTheHighestSeqSeenByAnyCopy) {
  std::atomic<int> round = 0;
  ScriptedHTTPServer server([&](const RecordedRequest&) {
    if (round++ == 0)
      return ScriptedAnswer{
          200,
          {},
          R"({"messages":[{"seq":5,"data":"AmE="},{"seq":9,"data":"%%"},{"seq":7,"data":"CQ=="},)"
          R"({"seq":6,"data":"AA=="},{"seq":8,"data":"BWI="}]})"};
    return ScriptedAnswer{200, {}, kNoMessages};
  });
  RelayClient client = clientOf(server);
  auto messages = client.fetch(kMailbox, true);
  ASSERT_EQ(messages.size(), 2u);  // "%%" is no base64, 9 and 0 are no kinds
  EXPECT_EQ(messages[0], (RelayMessage{5, {EnvelopeKind::approvalRequest, bytesOf("a")}}));
  EXPECT_EQ(messages[1], (RelayMessage{8, {EnvelopeKind::unpair, bytesOf("b")}}));
  RelayClient copy = client;
  EXPECT_TRUE(copy.fetch(kMailbox, false).empty());
  EXPECT_TRUE(client.fetch(kMailbox, false).empty());  // an empty answer leaves the cursor at 9
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].target, "/v1/mailbox/m-1/messages?after=0&wait=1");
  EXPECT_EQ(requests[1].target, "/v1/mailbox/m-1/messages?after=9");
  EXPECT_EQ(requests[2].target, "/v1/mailbox/m-1/messages?after=9");
}

TEST(RelayClient, UnreadableAnswersAreMalformedAndLeaveTheCursor) {
  ScriptedHTTPServer server([](const RecordedRequest& request) {
    if (request.method == "POST") return ScriptedAnswer{201, {}, "<html>created</html>"};
    return ScriptedAnswer{200, {}, R"({"messages":[{"seq":3,"data":1}]})"};
  });
  RelayClient client = clientOf(server);
  EXPECT_EQ(failureKind([&] { client.createMailbox(false); }), RelayErrorKind::malformed);
  EXPECT_EQ(failureKind([&] { client.fetch(kMailbox, false); }), RelayErrorKind::malformed);
  EXPECT_EQ(client.cursors().read(kMailbox.id), 0u);

  // A relay cannot make the client hold more than the answer limit.
  ScriptedHTTPServer huge([](const RecordedRequest&) {
    return ScriptedAnswer{200, {}, std::string(kRelayAnswerLimit + 1, ' ')};
  });
  RelayClient flooded = clientOf(huge);
  EXPECT_EQ(failureKind([&] { flooded.fetch(kMailbox, false); }), RelayErrorKind::malformed);
}

TEST(RelayClient, ARevokedSendTokenIsTheRelaysStatus) {
  ScriptedHTTPServer server([](const RecordedRequest&) { return ScriptedAnswer{403, {}, ""}; });
  RelayClient client = clientOf(server);
  try {
    client.send(kPeer, kEnvelope, false);
    FAIL();
  } catch (const RelayError& error) {
    EXPECT_EQ(error.kind(), RelayErrorKind::http);
    EXPECT_EQ(error.status(), 403);
  }
}

TEST(RelayClient, RequestsGoBelowABaseURLWithAPath) {
  ScriptedHTTPServer server([](const RecordedRequest&) { return ScriptedAnswer{204, {}, ""}; });
  for (std::string suffix : {"relay", "relay/"}) {
    RelayClient client(RelayEndpoint{server.baseURL() + suffix, std::nullopt, {}});
    client.deleteMailbox(kMailbox);
  }
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].target, "/relay/v1/mailbox/m-1");
  EXPECT_EQ(requests[1].target, "/relay/v1/mailbox/m-1");
}

TEST(RelayClient, NoAnswerIsATransportFailure) {
  std::string closedURL;
  {
    ScriptedHTTPServer closed([](const RecordedRequest&) { return ScriptedAnswer{}; });
    closedURL = closed.baseURL();
  }
  RelayClient refused(RelayEndpoint{closedURL, std::nullopt, {}});
  try {
    refused.fetch(kMailbox, false);
    FAIL();
  } catch (const RelayError& error) {
    EXPECT_EQ(error.kind(), RelayErrorKind::transport);
    EXPECT_FALSE(error.description().empty());
  }
  ScriptedHTTPServer hangsUp([](const RecordedRequest&) {
    ScriptedAnswer answer;
    answer.hangUp = true;
    return answer;
  });
  RelayClient client = clientOf(hangsUp);
  EXPECT_EQ(failureKind([&] { client.send(kPeer, kEnvelope, false); }), RelayErrorKind::transport);
}

TEST(RelayClient, TimeOutsAreTheDocumentedOnesAndAWaitingFetchGetsTheLonger) {
  EXPECT_EQ(RelayTimeouts{}, (RelayTimeouts{15, 40, 8}));
  ScriptedHTTPServer slow([](const RecordedRequest&) {
    ScriptedAnswer answer{200, {{"Date", "Sun, 06 Nov 1994 08:49:37 GMT"}}, kNoMessages};
    answer.delay = std::chrono::milliseconds(700);
    return answer;
  });
  RelayClient client = clientOf(slow, RelayTimeouts{0.2, 3, 0.2});
  EXPECT_EQ(failureKind([&] { client.fetch(kMailbox, false); }), RelayErrorKind::transport);
  EXPECT_EQ(failureKind([&] { client.health(); }), RelayErrorKind::transport);
  EXPECT_TRUE(client.fetch(kMailbox, true).empty());
}

TEST(RelayClient, AStopRequestEndsAHeldFetch) {
  ScriptedHTTPServer holding([](const RecordedRequest&) {
    ScriptedAnswer answer;
    answer.hold = true;
    return answer;
  });
  RelayClient client = clientOf(holding);
  std::stop_source stop;
  std::atomic<bool> ended = false;
  std::optional<RelayError> failure;
  std::thread fetching([&] {
    try {
      client.fetch(kMailbox, true, stop.get_token());
    } catch (const RelayError& error) {
      failure = error;
    }
    ended = true;
  });
  ASSERT_TRUE(eventually([&] { return holding.requests().size() == 1; }));
  stop.request_stop();
  EXPECT_TRUE(eventually([&] { return ended.load(); }, std::chrono::seconds(5)));
  fetching.join();
  ASSERT_TRUE(failure);
  EXPECT_EQ(*failure, RelayError::transport(kRelayCancelledDescription));
  // Already stopped: nothing is sent.
  EXPECT_EQ(failureKind([&] { client.fetch(kMailbox, false, stop.get_token()); }),
            RelayErrorKind::transport);
  EXPECT_EQ(holding.requests().size(), 1u);
}

TEST(RelayClient, HealthGivesAnyStatusWithTheDateHeader) {
  ScriptedHTTPServer server([](const RecordedRequest& request) {
    if (request.target == "/healthz")
      return ScriptedAnswer{200, {{"date", "Sun, 06 Nov 1994 08:49:37 GMT"}}, "ok"};
    return ScriptedAnswer{503, {}, ""};
  });
  RelayHealthAnswer health = clientOf(server).health();
  EXPECT_EQ(health.status, 200);
  EXPECT_EQ(health.date, "Sun, 06 Nov 1994 08:49:37 GMT");
  RelayClient prefixed(RelayEndpoint{server.baseURL() + "elsewhere/", std::nullopt, {}});
  EXPECT_EQ(prefixed.health().status, 503);
  EXPECT_EQ(prefixed.health().date, std::nullopt);
  EXPECT_EQ(server.requests().back().header("authorization"), std::nullopt);
}

struct BaseURLCase {
  const char* text;
  const char* accepted;  // the URL kept, or nullptr when refused
};

void PrintTo(const BaseURLCase& c, std::ostream* out) { *out << c.text; }

class RelayBaseURL : public ::testing::TestWithParam<BaseURLCase> {};

TEST_P(RelayBaseURL, IsHTTPSOrLoopbackHTTPWithoutQueryOrCredentials) {
  std::string problem;
  std::optional<std::string> url = checkedRelayBaseURL(GetParam().text, problem);
  if (GetParam().accepted == nullptr) {
    EXPECT_EQ(url, std::nullopt);
    EXPECT_FALSE(problem.empty());
  } else {
    EXPECT_EQ(url, GetParam().accepted) << problem;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RelayBaseURL,
    ::testing::Values(
        BaseURLCase{"https://relay.example.com/", "https://relay.example.com/"},
        BaseURLCase{"HTTPS://relay.example.com", "https://relay.example.com/"},
        BaseURLCase{"https://relay.example.com:8443/q/", "https://relay.example.com:8443/q/"},
        BaseURLCase{"http://127.0.0.1:8080/", "http://127.0.0.1:8080/"},
        BaseURLCase{"http://127.1.2.3/", "http://127.1.2.3/"},
        BaseURLCase{"http://localhost:9/", "http://localhost:9/"},
        BaseURLCase{"http://[::1]:9/", "http://[::1]:9/"},
        BaseURLCase{"http://relay.example.com/", nullptr},
        BaseURLCase{"http://127.0.0.1.example.com/", nullptr},
        BaseURLCase{"ftp://relay.example.com/", nullptr}, BaseURLCase{"relay.example.com", nullptr},
        BaseURLCase{"https://user:pw@relay.example.com/", nullptr},
        BaseURLCase{"https://relay.example.com/?x=1", nullptr},
        BaseURLCase{"https://relay.example.com/#top", nullptr},
        BaseURLCase{"https://relay example.com/", nullptr}, BaseURLCase{"", nullptr}));

}  // namespace
}  // namespace quorvane
