// The real quorvane-relay over TLS on loopback, with a test CA made by openssl, driven by the
// tests' own HTTP client: the API row by row, restarts, shutdown, and the limits that protect it
// from large, slow and silent clients.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <thread>

#include "Base/JSONReader.h"
#include "relay/HttpTestClient.h"
#include "relay/RedisServerProcess.h"
#include "relay/RelayProcess.h"
#include "support/TestCertificateAuthority.h"
#include "support/TestSupport.h"

namespace quorvane::testing {
namespace {

using namespace std::chrono_literals;

struct Mailbox {
  std::string id, secret, sendToken;
};

class RelayServerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    certificates_ = new TestCertificateAuthority();
    EXPECT_TRUE(certificates_->make("relay"));
  }
  static void TearDownTestSuite() { delete certificates_; }

  void start(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> arguments = {"--listen",   "127.0.0.1:0",
                                          "--tls-cert", certificates_->certificate().string(),
                                          "--tls-key",  certificates_->key().string(),
                                          "--db",       database().string()};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    relay_ = std::make_unique<RelayProcess>(arguments, log());
  }

  std::filesystem::path database() const { return folder_.path() / "state" / "relay.sqlite"; }
  std::filesystem::path log() const { return folder_.path() / "relay.log"; }

  std::unique_ptr<HttpConnection> connect(std::chrono::milliseconds timeout = 10s) {
    return std::make_unique<HttpConnection>(relay_->port(), certificates_->ca(), timeout);
  }

  HttpResponse call(const std::string& method, const std::string& target,
                    const std::string& credential = "", const std::string& body = "") {
    auto response = connect()->request(method, target, credential, body);
    EXPECT_TRUE(response.has_value()) << method << " " << target << " got no answer";
    return response.value_or(HttpResponse{});
  }

  Mailbox create(const std::string& query = "") {
    HttpResponse response = call("POST", "/v1/mailbox" + query);
    EXPECT_EQ(response.status, 201) << response.body;
    JSON json = parseJSON(response.body);
    return {json.at("id"), json.at("secret"), json.at("send_token")};
  }

  std::string messagesPath(const Mailbox& box, const std::string& query) {
    return "/v1/mailbox/" + box.id + "/messages" + query;
  }

  static TestCertificateAuthority* certificates_;
  TemporaryDirectory folder_;
  std::unique_ptr<RelayProcess> relay_;
};

TestCertificateAuthority* RelayServerTest::certificates_ = nullptr;

TEST_F(RelayServerTest, AnswersEveryRowOfTheApiOverTLS) {
  start();
  EXPECT_EQ(relay_->firstLine(), "quorvane-relay listening on https://127.0.0.1:" +
                                     std::to_string(relay_->port()) + "/");
  // Several requests on one kept-alive connection, as the client's HTTP library sends them.
  auto connection = connect();
  auto health = connection->request("GET", "/healthz");
  ASSERT_TRUE(health);
  EXPECT_EQ(health->status, 200);
  std::tm parsed{};
  ASSERT_NE(strptime(health->header("date").c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parsed), nullptr)
      << health->header("date");
  EXPECT_LT(std::abs(static_cast<double>(timegm(&parsed) - std::time(nullptr))), 5);

  auto made = connection->request("POST", "/v1/mailbox");
  ASSERT_TRUE(made);
  EXPECT_EQ(made->status, 201);
  EXPECT_EQ(made->header("content-type"), "application/json");
  JSON json = parseJSON(made->body);
  Mailbox box{json.at("id"), json.at("secret"), json.at("send_token")};
  Mailbox ephemeral = create("?ephemeral=1");

  auto token = connection->request("POST", "/v1/mailbox/" + box.id + "/send-tokens", box.secret);
  ASSERT_TRUE(token);
  EXPECT_EQ(token->status, 201);
  const std::string peerToken = parseJSON(token->body).at("send_token");

  struct Row {
    std::string method, target, credential, body;
    int status;
  };
  const std::string base = "/v1/mailbox/" + box.id;
  const std::vector<Row> rows = {
      {"POST", base + "/push-token", box.secret,
       R"({"token":"00ff","topic":"com.tallowmere.quorvane","production":true})", 204},
      {"POST", base + "/messages?push=1", peerToken, "\x01sealed", 202},
      {"POST", base + "/messages", box.sendToken, "\x02sealed", 202},
      {"POST", base + "/messages", box.secret, "\x02sealed", 404},
      {"POST", base + "/messages", "", "\x02sealed", 401},
      {"GET", base + "/messages?after=0", box.sendToken, "", 404},
      {"GET", base + "/messages?after=0", ephemeral.secret, "", 404},
      {"DELETE", base + "/send-tokens", box.secret, JSON{{"send_token", peerToken}}.dump(), 204},
      {"DELETE", base + "/send-tokens", box.secret, JSON{{"send_token", peerToken}}.dump(), 404},
      {"POST", base + "/messages", peerToken, "\x02sealed", 404},
      {"PUT", base + "/messages", box.secret, "", 405},
      {"POST", "/v1/mailbox/" + ephemeral.id + "/messages", ephemeral.sendToken, "\x04x", 202},
  };
  for (const Row& row : rows) {
    auto response = connection->request(row.method, row.target, row.credential, row.body);
    ASSERT_TRUE(response) << row.method << " " << row.target;
    EXPECT_EQ(response->status, row.status) << row.method << " " << row.target;
  }
  auto fetched = connection->request("GET", base + "/messages?after=0", box.secret);
  ASSERT_TRUE(fetched);
  EXPECT_EQ(fetched->status, 200);
  EXPECT_EQ(fetched->body,
            R"({"messages":[{"data":"AXNlYWxlZA==","seq":1},{"data":"AnNlYWxlZA==","seq":2}]})");
  auto deleted = connection->request("DELETE", base, box.secret);
  ASSERT_TRUE(deleted);
  EXPECT_EQ(deleted->status, 204);
  auto again = connection->request("DELETE", base, box.secret);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->status, 404);

  HttpResponse metrics = call("GET", "/metrics");
  EXPECT_EQ(metrics.status, 200);
  EXPECT_NE(metrics.body.find("quorvane_relay_requests_total{method=\"POST\",route=\"/v1/mailbox/"
                              "{id}/messages\",status=\"202\"} 3"),
            std::string::npos)
      << metrics.body;
  EXPECT_NE(metrics.body.find("quorvane_relay_mailboxes 1\n"), std::string::npos);

  // The log has a line per request, and no credential.
  relay_->stop(SIGTERM);
  const std::string logText = readFile(log());
  EXPECT_NE(logText.find("POST /v1/mailbox 201 "), std::string::npos) << logText;
  EXPECT_NE(logText.find("DELETE /v1/mailbox/{id}/send-tokens 204 "), std::string::npos);
  for (const std::string& credential : {box.secret, box.sendToken, peerToken, box.id})
    EXPECT_EQ(logText.find(credential), std::string::npos);
}

TEST_F(RelayServerTest, WaitingFetchIsWokenByASendAndOtherwiseEndsEmpty) {
  start({"--max-wait", "3"});
  Mailbox box = create();
  auto waiter = connect();
  ASSERT_TRUE(
      waiter->send(requestText("GET", messagesPath(box, "?after=0&wait=1"), box.secret, "")));
  std::this_thread::sleep_for(100ms);  // the fetch is held by now (or the answer comes later)
  const auto sent = std::chrono::steady_clock::now();
  EXPECT_EQ(call("POST", messagesPath(box, ""), box.sendToken, "\x05wake").status, 202);
  auto woken = waiter->readResponse();
  ASSERT_TRUE(woken);
  // Woken by the send, not by the end of the three-second wait.
  EXPECT_LT(std::chrono::steady_clock::now() - sent, 2500ms);
  EXPECT_EQ(woken->body, R"({"messages":[{"data":"BXdha2U=","seq":1}]})");

  auto empty = waiter->request("GET", messagesPath(box, "?after=1&wait=1"), box.secret);
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->status, 200);
  EXPECT_EQ(empty->body, R"({"messages":[]})");
}

TEST_F(RelayServerTest, RestartKeepsMessagesRevocationsAndDeletions) {
  start();
  Mailbox box = create();
  Mailbox gone = create();
  EXPECT_EQ(call("POST", messagesPath(box, ""), box.sendToken, "\x01one").status, 202);
  HttpResponse token = call("POST", "/v1/mailbox/" + box.id + "/send-tokens", box.secret);
  const std::string revoked = parseJSON(token.body).at("send_token");
  EXPECT_EQ(call("DELETE", "/v1/mailbox/" + box.id + "/send-tokens", box.secret,
                 JSON{{"send_token", revoked}}.dump())
                .status,
            204);
  EXPECT_EQ(call("DELETE", "/v1/mailbox/" + gone.id, gone.secret).status, 204);
  EXPECT_EQ(relay_->stop(SIGTERM), 0);

  start();
  EXPECT_EQ(call("GET", messagesPath(box, "?after=0"), box.secret).body,
            R"({"messages":[{"data":"AW9uZQ==","seq":1}]})");
  EXPECT_EQ(call("POST", messagesPath(box, ""), revoked, "\x01x").status, 404);
  EXPECT_EQ(call("DELETE", "/v1/mailbox/" + gone.id, gone.secret).status, 404);
  EXPECT_EQ(call("POST", messagesPath(box, ""), box.sendToken, "\x01two").status, 202);
  EXPECT_EQ(call("GET", messagesPath(box, "?after=1"), box.secret).body,
            R"({"messages":[{"data":"AXR3bw==","seq":2}]})");
}

TEST_F(RelayServerTest, AFullMailboxTakesMessagesAgainOnceItsOwnerReadsOn) {
  start({"--max-messages", "2", "--acknowledged-lifetime", "0"});
  Mailbox box = create();
  for (const char* body : {"\x01one", "\x01two"})
    EXPECT_EQ(call("POST", messagesPath(box, ""), box.sendToken, body).status, 202);
  EXPECT_EQ(call("POST", messagesPath(box, ""), box.sendToken, "\x01three").status, 429);
  EXPECT_EQ(call("GET", messagesPath(box, "?after=2"), box.sendToken).status, 404);
  EXPECT_EQ(call("POST", messagesPath(box, ""), box.sendToken, "\x01three").status, 429);
  EXPECT_EQ(call("GET", messagesPath(box, "?after=2"), box.secret).body, R"({"messages":[]})");
  EXPECT_EQ(call("POST", messagesPath(box, ""), box.sendToken, "\x01three").status, 202);
}

TEST_F(RelayServerTest, TerminationAnswersWaitingFetchesAndExitsZero) {
  start();
  Mailbox box = create();
  std::vector<std::unique_ptr<HttpConnection>> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.push_back(connect());
    ASSERT_TRUE(waiters.back()->send(
        requestText("GET", messagesPath(box, "?after=0&wait=1"), box.secret, "")));
  }
  auto idle = connect();  // a kept-alive connection between requests
  EXPECT_TRUE(idle->request("GET", "/healthz"));
  std::this_thread::sleep_for(200ms);
  const auto stopped = std::chrono::steady_clock::now();
  EXPECT_EQ(relay_->stop(SIGTERM), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - stopped, 4s) << "shutdown waited for the grace";
  for (auto& waiter : waiters) {
    auto answer = waiter->readResponse();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(answer->body, R"({"messages":[]})");
  }
}

TEST_F(RelayServerTest, OversizedBodiesAreRefusedWhileTheClientStillSends) {
  start();
  Mailbox box = create();
  // Announced too large: refused after the header, before any of the body.
  auto announced = connect();
  ASSERT_TRUE(announced->send("POST " + messagesPath(box, "") +
                              " HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + box.sendToken +
                              "\r\nContent-Length: 2097152\r\n\r\n\x01"));
  auto refused = announced->readResponse();
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 413);

  // Chunked: refused once the chunks pass 1 MiB, while the client has more to send.
  auto chunked = connect();
  ASSERT_TRUE(chunked->send("POST " + messagesPath(box, "") +
                            " HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + box.sendToken +
                            "\r\nTransfer-Encoding: chunked\r\n\r\n"));
  const std::string chunk = "10000\r\n" + std::string(0x10000, '\x01') + "\r\n";
  for (int i = 0; i < 17; ++i) ASSERT_TRUE(chunked->send(chunk)) << "chunk " << i;
  auto chunkedRefusal = chunked->readResponse();
  ASSERT_TRUE(chunkedRefusal);
  EXPECT_EQ(chunkedRefusal->status, 413);
  EXPECT_TRUE(chunked->closedByServer());

  // Exactly 1 MiB is a message.
  EXPECT_EQ(
      call("POST", messagesPath(box, ""), box.sendToken, "\x01" + std::string(1024 * 1024 - 1, 'm'))
          .status,
      202);
}

TEST_F(RelayServerTest, ExpectContinueIsAnsweredBeforeTheBody) {
  start();
  Mailbox box = create();
  auto connection = connect();
  const std::string body = "\x03" + std::string(4000, 'c');
  ASSERT_TRUE(connection->send(
      "POST " + messagesPath(box, "") + " HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " +
      box.sendToken + "\r\nExpect: 100-continue\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\n\r\n"));
  auto interim = connection->readResponse();
  ASSERT_TRUE(interim);
  EXPECT_EQ(interim->status, 100);
  ASSERT_TRUE(connection->send(body));
  auto accepted = connection->readResponse();
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->status, 202);
}

TEST_F(RelayServerTest, OversizedHeadersAreRefused) {
  start();
  auto connection = connect();
  auto response = connection->request("GET", "/healthz", "", "",
                                      "X-Padding: " + std::string(17 * 1024, 'p') + "\r\n");
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 431);
  auto fine = connect()->request("GET", "/healthz", "", "",
                                 "X-Padding: " + std::string(15 * 1024, 'p') + "\r\n");
  ASSERT_TRUE(fine);
  EXPECT_EQ(fine->status, 200);
}

TEST_F(RelayServerTest, SlowAndSilentClientsDelayNobody) {
  start({"--header-timeout", "3"});
  // A client that never starts TLS, one that stops in the middle of its header, one that sends
  // a byte now and then.
  HttpConnection silent(relay_->port(), certificates_->ca(), 8s, /*handshake=*/false);
  auto halfway = connect(8s);
  ASSERT_TRUE(halfway->send("GET /healthz HTTP/1.1\r\nHost: 127"));
  auto trickling = connect(8s);
  ASSERT_TRUE(trickling->send("G"));

  const auto begun = std::chrono::steady_clock::now();
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(call("GET", "/healthz").status, 200);
    trickling->send("E");
  }
  // Well before the three-second header time-out would have freed anything held.
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 2500ms);
  // The header time-out ends all three.
  EXPECT_TRUE(silent.closedByServer());
  EXPECT_TRUE(halfway->closedByServer());
  EXPECT_TRUE(trickling->closedByServer());
}

TEST_F(RelayServerTest, LimitsFollowTheForwardedAddressBehindAProxy) {
  start({"--creations-per-minute", "1", "--forwarded-for"});
  auto createFrom = [&](const std::string& forwarded) {
    auto response =
        connect()->request("POST", "/v1/mailbox", "", "", "X-Forwarded-For: " + forwarded + "\r\n");
    return response ? response->status : 0;
  };
  EXPECT_EQ(createFrom("203.0.113.9, 192.0.2.1"), 201);
  EXPECT_EQ(createFrom("192.0.2.1"), 429);
  EXPECT_EQ(createFrom("192.0.2.1, 192.0.2.2"), 201);
  EXPECT_EQ(createFrom("2001:db8::1"), 201);
  // Without a usable header, the connection's own address counts.
  EXPECT_EQ(createFrom("not an address"), 201);
  EXPECT_EQ(createFrom("garbage"), 429);
}

TEST_F(RelayServerTest, RefusesBadSettingsAtStart) {
  auto [code, error] =
      runRelayToEnd({"--listen", "127.0.0.1:0", "--tls-cert", certificates_->certificate().string(),
                     "--db", database().string()},
                    folder_.path());
  EXPECT_EQ(code, 1);
  EXPECT_NE(error.find("--tls-cert and --tls-key go together"), std::string::npos) << error;

  start();
  auto [busy, busyError] = runRelayToEnd({"--listen", "127.0.0.1:" + std::to_string(relay_->port()),
                                          "--db", (folder_.path() / "other.sqlite").string()},
                                         folder_.path());
  EXPECT_EQ(busy, 1);
  EXPECT_NE(busyError.find("cannot listen on 127.0.0.1:" + std::to_string(relay_->port())),
            std::string::npos)
      << busyError;
}

TEST_F(RelayServerTest, PlainHttpWarnsThatItNeedsAProxy) {
  relay_ = std::make_unique<RelayProcess>(
      std::vector<std::string>{"--listen", "127.0.0.1:0", "--db", database().string()}, log());
  EXPECT_EQ(relay_->firstLine(),
            "quorvane-relay listening on http://127.0.0.1:" + std::to_string(relay_->port()) + "/");
  auto health = HttpConnection(relay_->port(), std::nullopt).request("GET", "/healthz");
  ASSERT_TRUE(health);
  EXPECT_EQ(health->status, 200);
  EXPECT_NE(readFile(log()).find("warning: serving plain HTTP"), std::string::npos);
}

TEST_F(RelayServerTest, TwoRelaysShareOneRedisServer) {
  RedisServerProcess redis(folder_.path());
  if (!redis.available()) GTEST_SKIP() << RedisServerProcess::kMissing;
  auto relayWith = [&](const std::string& name) {
    return std::make_unique<RelayProcess>(
        std::vector<std::string>{
            "--listen", "127.0.0.1:0", "--tls-cert", certificates_->certificate().string(),
            "--tls-key", certificates_->key().string(), "--redis", redis.url(), "--max-wait", "5"},
        folder_.path() / (name + ".log"));
  };
  auto first = relayWith("first");
  auto second = relayWith("second");
  auto on = [&](const RelayProcess& relay) {
    return std::make_unique<HttpConnection>(relay.port(), certificates_->ca());
  };
  auto made = on(*first)->request("POST", "/v1/mailbox");
  ASSERT_TRUE(made);
  JSON json = parseJSON(made->body);
  Mailbox box{json.at("id"), json.at("secret"), json.at("send_token")};

  // A fetch waiting on the first relay is woken by a send through the second.
  auto waiter = on(*first);
  ASSERT_TRUE(
      waiter->send(requestText("GET", messagesPath(box, "?after=0&wait=1"), box.secret, "")));
  std::this_thread::sleep_for(200ms);
  const auto sent = std::chrono::steady_clock::now();
  auto accepted = on(*second)->request("POST", messagesPath(box, ""), box.sendToken, "\x01hi");
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->status, 202);
  auto woken = waiter->readResponse();
  ASSERT_TRUE(woken);
  EXPECT_LT(std::chrono::steady_clock::now() - sent, 4s) << "woken by the end of the wait";
  EXPECT_EQ(woken->body, R"({"messages":[{"data":"AWhp","seq":1}]})");

  // The second relay dies without a chance to clean up; the first goes on, and a new second
  // relay sees everything.
  EXPECT_EQ(second->stop(SIGKILL), -SIGKILL);
  auto more = on(*first)->request("POST", messagesPath(box, ""), box.sendToken, "\x02more");
  ASSERT_TRUE(more);
  EXPECT_EQ(more->status, 202);
  second = relayWith("second-again");
  auto fetched = on(*second)->request("GET", messagesPath(box, "?after=0"), box.secret);
  ASSERT_TRUE(fetched);
  EXPECT_EQ(fetched->body, R"({"messages":[{"data":"AWhp","seq":1},{"data":"Am1vcmU=","seq":2}]})");
  EXPECT_EQ(first->stop(SIGTERM), 0);
  EXPECT_EQ(second->stop(SIGTERM), 0);
}

}  // namespace
}  // namespace quorvane::testing
