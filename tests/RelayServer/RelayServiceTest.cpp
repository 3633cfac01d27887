// The relay's API without HTTP: every route with its statuses, against both stores (the same
// contract holds in memory and in SQLite).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "ActivityStore/SQLite.h"
#include "Base/JSONReader.h"
#include "RelayServer/InMemoryMailboxStore.h"
#include "RelayServer/RedisMailboxStore.h"
#include "RelayServer/RelayCredentials.h"
#include "RelayServer/RelayServerError.h"
#include "RelayServer/RelayService.h"
#include "RelayServer/SQLiteMailboxStore.h"
#include "relay/RedisServerProcess.h"
#include "support/TestSupport.h"

namespace quorvane::relay {
namespace {

using testing::RedisServerProcess;
using testing::TemporaryDirectory;

constexpr Date kStart{1'800'000'000};

struct Mailbox {
  std::string id, secret, sendToken;
};

// One redis-server for the whole program; each test keeps its keys under a prefix of its own.
class RedisEnvironment : public ::testing::Environment {
 public:
  void TearDown() override { server.reset(); }
  static RedisServerProcess& instance() {
    if (!server) {
      folder = std::make_unique<TemporaryDirectory>();
      server = std::make_unique<RedisServerProcess>(folder->path());
    }
    return *server;
  }
  static inline std::unique_ptr<TemporaryDirectory> folder;
  static inline std::unique_ptr<RedisServerProcess> server;
};
const auto* const kRedisEnvironment = ::testing::AddGlobalTestEnvironment(new RedisEnvironment);

std::string uniquePrefix() {
  static int counter = 0;
  return "test" + std::to_string(++counter) + ":";
}

class RelayServiceTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (GetParam() == "redis" && !RedisEnvironment::instance().available())
      GTEST_SKIP() << RedisServerProcess::kMissing;
    prefix_ = uniquePrefix();
    open();
  }

  void open() {
    service_.reset();
    store_.reset();
    if (GetParam() == "sqlite")
      store_ = std::make_unique<SQLiteMailboxStore>(directory_.path() / "relay.sqlite");
    else if (GetParam() == "redis")
      store_ = std::make_unique<RedisMailboxStore>(
          RedisAddress{"127.0.0.1", RedisEnvironment::instance().port()}, prefix_);
    else
      store_ = std::make_unique<InMemoryMailboxStore>();
    service_ = std::make_unique<RelayService>(*store_, waiting_, limits_);
  }

  RelayAnswer call(const std::string& method, const std::string& target,
                   const std::string& credential = "", const std::string& body = "",
                   const std::string& address = "192.0.2.1") {
    RelayRequest request;
    request.method = method;
    request.target = target;
    if (!credential.empty()) {
      request.authorization.emplace();
      request.authorization->append("Bearer " + credential);
    }
    request.body = bytesOf(body);
    request.clientAddress = address;
    return service_->handle(request, now_);
  }

  Mailbox create(const std::string& query = "") {
    RelayAnswer answer = call("POST", "/v1/mailbox" + query);
    EXPECT_EQ(answer.status, 201) << answer.body;
    EXPECT_TRUE(answer.bodyHoldsSecrets);
    JSON json = JSON::parse(answer.body);
    return {json.at("id"), json.at("secret"), json.at("send_token")};
  }

  RelayAnswer send(const Mailbox& box, const std::string& body, const std::string& query = "") {
    return call("POST", "/v1/mailbox/" + box.id + "/messages" + query, box.sendToken, body);
  }

  // The (seq, data) pairs of a fetch answer.
  std::vector<std::pair<uint64_t, std::string>> fetch(const Mailbox& box, uint64_t after) {
    RelayAnswer answer = call(
        "GET", "/v1/mailbox/" + box.id + "/messages?after=" + std::to_string(after), box.secret);
    EXPECT_EQ(answer.status, 200) << answer.body;
    std::vector<std::pair<uint64_t, std::string>> result;
    const JSON json = JSON::parse(answer.body);
    for (const JSON& item : json.at("messages"))
      result.emplace_back(item.at("seq").get<uint64_t>(), item.at("data").get<std::string>());
    return result;
  }

  TemporaryDirectory directory_;
  std::string prefix_;
  RelayLimits limits_;
  WaitingFetches waiting_;
  std::unique_ptr<MailboxStore> store_;
  std::unique_ptr<RelayService> service_;
  Date now_ = kStart;
};

TEST_P(RelayServiceTest, MailboxLifeFromCreationToDeletion) {
  Mailbox box = create();
  EXPECT_EQ(box.secret.size(), 43u);
  EXPECT_EQ(send(box, "\x01hello").status, 202);
  EXPECT_EQ(send(box, "\x08world").status, 202);
  using Items = std::vector<std::pair<uint64_t, std::string>>;
  EXPECT_EQ(fetch(box, 0), (Items{{1, "AWhlbGxv"}, {2, "CHdvcmxk"}}));
  EXPECT_EQ(fetch(box, 1), (Items{{2, "CHdvcmxk"}}));
  EXPECT_EQ(fetch(box, 2), Items{});
  // Fetching deletes nothing.
  EXPECT_EQ(fetch(box, 0).size(), 2u);
  EXPECT_EQ(call("DELETE", "/v1/mailbox/" + box.id, box.secret).status, 204);
  EXPECT_EQ(call("DELETE", "/v1/mailbox/" + box.id, box.secret).status, 404);
  EXPECT_EQ(send(box, "\x01again").status, 404);
}

TEST_P(RelayServiceTest, RefusalsLookTheSameWhetherOrNotTheMailboxExists) {
  Mailbox box = create();
  Mailbox other = create();
  const std::string unknown = "AAAAAAAAAAAAAAAAAAAAAA";
  struct Case {
    std::string method, path, credential;
  };
  // Each case on the real mailbox must answer exactly as on a mailbox that does not exist.
  const std::vector<Case> cases = {
      {"GET", "/messages?after=0", ""},
      {"GET", "/messages?after=0", "not-a-credential"},
      {"GET", "/messages?after=0", box.sendToken},
      {"GET", "/messages?after=0", other.secret},
      {"POST", "/messages", box.secret},
      {"POST", "/messages", other.sendToken},
      {"POST", "/send-tokens", box.sendToken},
      {"DELETE", "", box.sendToken},
      {"DELETE", "", other.secret},
      {"POST", "/push-token", box.sendToken},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.method + " " + c.path + " with " + c.credential);
    RelayAnswer real = call(c.method, "/v1/mailbox/" + box.id + c.path, c.credential, "\x01x");
    RelayAnswer missing = call(c.method, "/v1/mailbox/" + unknown + c.path, c.credential, "\x01x");
    EXPECT_EQ(real.status, c.credential.empty() ? 401 : 404);
    EXPECT_EQ(real.status, missing.status);
    EXPECT_EQ(real.body, missing.body);
  }
  EXPECT_EQ(fetch(box, 0).size(), 0u) << "no refused send was stored";
}

TEST_P(RelayServiceTest, SendTokensAreMadeAndRevoked) {
  Mailbox box = create();
  RelayAnswer made = call("POST", "/v1/mailbox/" + box.id + "/send-tokens", box.secret);
  ASSERT_EQ(made.status, 201);
  const std::string token = JSON::parse(made.body).at("send_token");
  EXPECT_NE(token, box.sendToken);
  Mailbox peer{box.id, box.secret, token};
  EXPECT_EQ(send(peer, "\x02x").status, 202);
  const std::string path = "/v1/mailbox/" + box.id + "/send-tokens";
  const std::string revoke = JSON{{"send_token", token}}.dump();
  EXPECT_EQ(call("DELETE", path, box.secret, revoke).status, 204);
  EXPECT_EQ(send(peer, "\x02x").status, 404);
  EXPECT_EQ(call("DELETE", path, box.secret, revoke).status, 404);
  EXPECT_EQ(send(box, "\x02x").status, 202) << "the first token still works";
  for (const char* bad : {"", "[]", "{}", R"({"send_token": 5})", R"({"send_token": ""})"})
    EXPECT_EQ(call("DELETE", path, box.secret, bad).status, 400) << bad;
}

TEST_P(RelayServiceTest, PushRegistrationsAreCheckedAndPushSendsAccepted) {
  Mailbox box = create();
  const std::string path = "/v1/mailbox/" + box.id + "/push-token";
  EXPECT_EQ(call("POST", path, box.secret,
                 R"({"token":"abc","topic":"com.tallowmere.quorvane","production":false})")
                .status,
            204);
  for (const char* bad : {"", "null", R"({"token":"abc","topic":"t"})",
                          R"({"token":"","topic":"t","production":true})",
                          R"({"token":"a","topic":"t","production":"yes"})",
                          R"({"token":1,"topic":"t","production":true})"})
    EXPECT_EQ(call("POST", path, box.secret, bad).status, 400) << bad;
  Mailbox unregistered = create();
  EXPECT_EQ(send(box, "\x03x", "?push=1").status, 202);
  EXPECT_EQ(send(unregistered, "\x03x", "?push=1").status, 202);
}

TEST_P(RelayServiceTest, MessagesMustBeEnvelopesWithinTheSizeLimit) {
  Mailbox box = create();
  EXPECT_EQ(send(box, "").status, 400);
  for (int kind = 0; kind < 256; ++kind) {
    const int expected = kind >= 1 && kind <= 8 ? 202 : 400;
    EXPECT_EQ(send(box, std::string(1, static_cast<char>(kind)) + "body").status, expected)
        << "kind " << kind;
  }
  EXPECT_EQ(send(box, "\x01" + std::string(kMaxBodyBytes - 1, 'x')).status, 202);
  EXPECT_EQ(send(box, "\x01" + std::string(kMaxBodyBytes, 'x')).status, 413);
}

TEST_P(RelayServiceTest, SequenceNumbersOnlyGrowThroughExpiryAndReopening) {
  limits_.maxMessagesPerMailbox = 3;
  limits_.messageLifetimeSeconds = 60;
  open();
  Mailbox box = create();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(send(box, "\x01x").status, 202);
  RelayAnswer full = send(box, "\x01x");
  EXPECT_EQ(full.status, 429);
  EXPECT_EQ(full.headers.at(0).first, "Retry-After");
  now_ = now_ + 61;
  service_->expire(now_);
  EXPECT_TRUE(fetch(box, 0).empty());
  EXPECT_EQ(send(box, "\x01y").status, 202);
  if (GetParam() != "memory") {
    open();  // the file and the Redis server keep what the memory store cannot
    EXPECT_EQ(send(box, "\x01z").status, 202);
  }
  auto items = fetch(box, 0);
  ASSERT_FALSE(items.empty());
  EXPECT_EQ(items.front().first, 4u);
  EXPECT_EQ(items.back().first, GetParam() != "memory" ? 5u : 4u);
}

TEST_P(RelayServiceTest, FetchingPastMessagesMakesRoomInAFullMailbox) {
  limits_.maxMessagesPerMailbox = 3;
  open();
  Mailbox box = create();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(send(box, "\x01x").status, 202);
  EXPECT_EQ(fetch(box, 0).size(), 3u);
  EXPECT_EQ(send(box, "\x01x").status, 429) << "a fetch from the start acknowledges nothing";
  EXPECT_EQ(fetch(box, 2).size(), 1u);
  if (GetParam() != "memory") open();  // the position is kept with the mailbox
  EXPECT_EQ(fetch(box, 1).size(), 2u) << "a lower cursor still reads what is left";
  // Two acknowledged, so two more fit; the lower cursor above did not take the position back.
  EXPECT_EQ(send(box, "\x01x").status, 202);
  EXPECT_EQ(send(box, "\x01x").status, 202);
  EXPECT_EQ(send(box, "\x01x").status, 429);
  EXPECT_EQ(fetch(box, 0).size(), 5u) << "nothing is gone before the expiry run";
  // A cursor beyond the last message acknowledges only what exists: later messages count.
  EXPECT_TRUE(fetch(box, 1000).empty());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(send(box, "\x01y").status, 202);
  EXPECT_EQ(send(box, "\x01y").status, 429);
  auto items = fetch(box, 5);
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items.front().first, 6u);
}

TEST_P(RelayServiceTest, AcknowledgedMessagesGoAfterTheGracePeriodEach) {
  Mailbox box = create();
  Mailbox unread = create();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(send(box, "\x01x").status, 202);
  EXPECT_EQ(send(unread, "\x01x").status, 202);
  const Date start = now_;
  fetch(box, 2);
  now_ = start + 300;
  fetch(box, 3);
  auto seqs = [&] {
    std::vector<uint64_t> result;
    for (const auto& [seq, data] : fetch(box, 0)) result.push_back(seq);
    return result;
  };
  auto stored = [&] {
    const std::string body = call("GET", "/metrics").body;
    const std::string name = "\nquorvane_relay_messages_stored ";
    const size_t at = body.find(name);
    return at == std::string::npos ? -1 : std::stoi(body.substr(at + name.size()));
  };
  EXPECT_EQ(stored(), 4);
  const std::vector<std::tuple<double, std::vector<uint64_t>, int>> steps = {
      {599, {1, 2, 3}, 4},  // the second client still has a while to read 1 and 2
      {600, {3}, 2},        // acknowledged at the start
      {899, {3}, 2},
      {900, {}, 1},  // acknowledged 300 s later
  };
  for (const auto& [after, left, count] : steps) {
    now_ = start + after;
    service_->expire(now_);
    EXPECT_EQ(seqs(), left) << after << " s";
    EXPECT_EQ(stored(), count) << after << " s";
  }
  EXPECT_EQ(fetch(unread, 0).size(), 1u) << "unread messages keep the old rules";
  EXPECT_EQ(send(box, "\x01x").status, 202);
  EXPECT_EQ(fetch(box, 3).size(), 1u) << "numbering goes on after the removed ones";
}

TEST_P(RelayServiceTest, NoGracePeriodRemovesAtTheNextExpiryRun) {
  limits_.acknowledgedLifetimeSeconds = 0;
  open();
  Mailbox box = create();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(send(box, "\x01x").status, 202);
  fetch(box, 1);
  service_->expire(now_);
  auto items = fetch(box, 0);
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items.front().first, 2u);
}

TEST_P(RelayServiceTest, OnlyTheOwnersFetchAcknowledges) {
  limits_.maxMessagesPerMailbox = 2;
  limits_.acknowledgedLifetimeSeconds = 0;
  open();
  Mailbox box = create();
  Mailbox other = create();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(send(box, "\x01x").status, 202);
  const std::string path = "/v1/mailbox/" + box.id + "/messages?after=2";
  for (const std::string& credential : {box.sendToken, other.secret, std::string("wrong")})
    EXPECT_EQ(call("GET", path, credential).status, 404);
  EXPECT_EQ(call("GET", "/v1/mailbox/" + other.id + "/messages?after=2", other.secret).status, 200);
  service_->expire(now_);
  EXPECT_EQ(send(box, "\x01x").status, 429);
  EXPECT_EQ(fetch(box, 0).size(), 2u);
}

TEST_P(RelayServiceTest, EphemeralMailboxesEndAfterFifteenMinutes) {
  Mailbox box = create("?ephemeral=1");
  Mailbox permanent = create();
  now_ = now_ + kEphemeralMailboxLifetimeSeconds - 1;
  EXPECT_EQ(send(box, "\x01x").status, 202);
  now_ = now_ + 1;
  EXPECT_EQ(send(box, "\x01x").status, 404);
  service_->expire(now_);
  EXPECT_EQ(call("DELETE", "/v1/mailbox/" + box.id, box.secret).status, 404);
  EXPECT_EQ(send(permanent, "\x01x").status, 202);
}

TEST_P(RelayServiceTest, CreationsAndSendsAreLimitedPerAddress) {
  limits_.creationsPerMinute = 2;
  limits_.sendsPerMinute = 3;
  open();
  EXPECT_EQ(call("POST", "/v1/mailbox", "", "", "192.0.2.7").status, 201);
  EXPECT_EQ(call("POST", "/v1/mailbox", "", "", "192.0.2.7").status, 201);
  RelayAnswer refused = call("POST", "/v1/mailbox", "", "", "192.0.2.7");
  EXPECT_EQ(refused.status, 429);
  ASSERT_EQ(refused.headers.size(), 1u);
  EXPECT_EQ(refused.headers[0], (std::pair<std::string, std::string>{"Retry-After", "30"}));
  Mailbox box = create();  // another address
  for (int i = 0; i < 3; ++i) EXPECT_EQ(send(box, "\x01x").status, 202);
  EXPECT_EQ(send(box, "\x01x").status, 429);
  now_ = now_ + 20;  // one send refilled
  EXPECT_EQ(send(box, "\x01x").status, 202);
}

TEST_P(RelayServiceTest, WaitingFetchesAreWokenBySendsAndDeletion) {
  Mailbox box = create();
  RelayAnswer waiting =
      call("GET", "/v1/mailbox/" + box.id + "/messages?after=0&wait=1", box.secret);
  ASSERT_TRUE(waiting.wait.has_value());
  EXPECT_EQ(waiting.wait->mailboxId, box.id);
  std::atomic<int> woken = 0;
  waiting_.add(box.id, [&] { ++woken; });
  waiting_.add("someone-else", [&] { woken += 100; });
  EXPECT_EQ(send(box, "\x01x").status, 202);
  EXPECT_EQ(woken, 1);
  RelayAnswer now = service_->fetchNow(*waiting.wait);
  EXPECT_FALSE(now.wait.has_value());
  EXPECT_NE(now.body.find("\"seq\":1"), std::string::npos);
  EXPECT_FALSE(call("GET", "/v1/mailbox/" + box.id + "/messages?after=0&wait=1", box.secret).wait);
  waiting_.add(box.id, [&] { ++woken; });
  EXPECT_EQ(call("DELETE", "/v1/mailbox/" + box.id, box.secret).status, 204);
  EXPECT_EQ(woken, 2);
}

TEST_P(RelayServiceTest, RequestsOutsideTheApiAreRefusedPlainly) {
  Mailbox box = create();
  const std::string messages = "/v1/mailbox/" + box.id + "/messages";
  EXPECT_EQ(call("GET", messages + "?after=x", box.secret).status, 400);
  EXPECT_EQ(call("GET", messages + "?after=18446744073709551616", box.secret).status, 400);
  EXPECT_EQ(call("GET", messages + "?after=18446744073709551615", box.secret).status, 200);
  EXPECT_EQ(call("GET", messages, box.secret).status, 200) << "a missing cursor reads as 0";
  RelayAnswer wrongMethod = call("PUT", messages, box.secret);
  EXPECT_EQ(wrongMethod.status, 405);
  EXPECT_EQ(wrongMethod.headers.at(0).second, "GET, POST");
  EXPECT_EQ(call("GET", "/v2/mailbox").status, 404);
  EXPECT_EQ(call("GET", "/healthz").status, 200);
  RelayAnswer metrics = call("GET", "/metrics");
  EXPECT_EQ(metrics.status, 200);
  EXPECT_NE(metrics.body.find("quorvane_relay_mailboxes 1\n"), std::string::npos);
  EXPECT_NE(metrics.body.find("quorvane_relay_waiting_fetches 0\n"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Stores, RelayServiceTest, ::testing::Values("memory", "sqlite", "redis"));

TEST(RedisMailboxStore, ArrivalsReachEveryStoreOnTheServer) {
  RedisServerProcess& redis = RedisEnvironment::instance();
  if (!redis.available()) GTEST_SKIP() << RedisServerProcess::kMissing;
  const std::string prefix = uniquePrefix();
  // Declared before the stores, so that they outlive the listening thread.
  Mutex mutex;
  std::vector<std::string> arrived;
  RedisMailboxStore listening({"127.0.0.1", redis.port()}, prefix);
  RedisMailboxStore sending({"127.0.0.1", redis.port()}, prefix);
  listening.setArrivalListener([&](const std::string& id) {
    MutexLock lock(mutex);
    arrived.push_back(id);
  });
  sending.createMailbox({"box", Bytes(32, 1), Bytes(32, 2), false, kStart, std::nullopt});
  // The subscription may start after the first append: append until one is heard.
  bool heard = testing::eventually([&] {
    sending.appendMessage("box", bytesOf("\x01x"), false, kStart, 1000);
    MutexLock lock(mutex);
    return !arrived.empty();
  });
  EXPECT_TRUE(heard);
  MutexLock lock(mutex);
  EXPECT_EQ(arrived.empty() ? "" : arrived.front(), "box");
  lock.unlock();
}

TEST(RedisMailboxStore, ReadsOnlyRedisURLs) {
  EXPECT_EQ(parseRedisURL("redis://127.0.0.1:6380").port, 6380);
  EXPECT_EQ(parseRedisURL("redis://cache.internal/").host, "cache.internal");
  EXPECT_EQ(parseRedisURL("redis://cache.internal").port, 6379);
  for (const char* bad : {"", "127.0.0.1:6379", "redis://", "redis://:6379", "redis://h:0",
                          "redis://h:65536", "redis://h:x", "redis://user@h:1", "http://h:1"})
    EXPECT_THROW(parseRedisURL(bad), RelayServerError) << bad;
}

TEST(SQLiteMailboxStore, KeepsCredentialsOnlyAsHashes) {
  TemporaryDirectory directory;
  WaitingFetches waiting;
  std::string secret, token, extra;
  {
    SQLiteMailboxStore store(directory.path() / "relay.sqlite");
    RelayService service(store, waiting, RelayLimits{});
    RelayRequest create{"POST", "/v1/mailbox", std::nullopt, {}, "192.0.2.1"};
    JSON made = JSON::parse(service.handle(create, kStart).body);
    secret = made.at("secret");
    token = made.at("send_token");
    RelayRequest more{"POST",
                      "/v1/mailbox/" + made.at("id").get<std::string>() + "/send-tokens",
                      SecureBytes(bytesOf("Bearer " + secret)),
                      {},
                      "192.0.2.1"};
    extra = JSON::parse(service.handle(more, kStart).body).at("send_token");
  }
  for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
    const std::string contents = testing::readFile(entry.path());
    for (const std::string& credential : {secret, token, extra})
      EXPECT_EQ(contents.find(credential), std::string::npos) << entry.path();
  }
}

TEST(SQLiteMailboxStore, UpgradesFilesMadeBeforeAcknowledgedPositions) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "relay.sqlite";
  {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &handle), SQLITE_OK);
    SQLiteConnection connection(handle);
    executeSQL(handle,
               "CREATE TABLE mailboxes (id TEXT PRIMARY KEY, secret_hash BLOB NOT NULL, "
               "ephemeral INTEGER NOT NULL, created_at REAL NOT NULL, expires_at REAL, "
               "last_seq INTEGER NOT NULL DEFAULT 0, push_token TEXT, push_topic TEXT, "
               "push_production INTEGER);"
               "CREATE TABLE send_tokens (mailbox_id TEXT NOT NULL, token_hash BLOB NOT NULL, "
               "PRIMARY KEY (mailbox_id, token_hash)) WITHOUT ROWID;"
               "CREATE TABLE messages (mailbox_id TEXT NOT NULL, seq INTEGER NOT NULL, "
               "stored_at REAL NOT NULL, push INTEGER NOT NULL, data BLOB NOT NULL, "
               "PRIMARY KEY (mailbox_id, seq)) WITHOUT ROWID;"
               "INSERT INTO mailboxes (id, secret_hash, ephemeral, created_at, last_seq) "
               "VALUES ('box', x'01', 0, 1800000000, 2);"
               "INSERT INTO messages VALUES ('box', 1, 1800000000, 0, x'0161');"
               "INSERT INTO messages VALUES ('box', 2, 1800000000, 0, x'0162');");
  }
  SQLiteMailboxStore store(path);
  const Bytes third = {0x01, 'c'};
  EXPECT_EQ(store.appendMessage("box", third, false, kStart, 2).result,
            AppendOutcome::Result::mailboxFull);
  store.acknowledge("box", 1, kStart);
  EXPECT_EQ(store.appendMessage("box", third, false, kStart, 2).seq, 3u);
  store.expire(kStart, kStart - 1e6, kStart);
  const std::vector<StoredMessage> left = store.messagesAfter("box", 0, 1 << 20);
  ASSERT_EQ(left.size(), 2u);
  EXPECT_EQ(left[0], (StoredMessage{2, Bytes{0x01, 'b'}}));
}

TEST(RelayRoute, MatchesEachRouteAndNothingElse) {
  struct Case {
    const char* method;
    const char* target;
    RouteMatch::Result result;
    const char* pattern;
  };
  using R = RouteMatch::Result;
  const Case cases[] = {
      {"POST", "/v1/mailbox", R::found, "/v1/mailbox"},
      {"POST", "/v1/mailbox/?ephemeral=1", R::found, "/v1/mailbox"},
      {"GET", "/v1/mailbox", R::methodNotAllowed, "/v1/mailbox"},
      {"DELETE", "/v1/mailbox/abc_-9", R::found, "/v1/mailbox/{id}"},
      {"POST", "/v1/mailbox/abc/send-tokens", R::found, "/v1/mailbox/{id}/send-tokens"},
      {"DELETE", "/v1/mailbox/abc/send-tokens", R::found, "/v1/mailbox/{id}/send-tokens"},
      {"POST", "/v1/mailbox/abc/push-token", R::found, "/v1/mailbox/{id}/push-token"},
      {"GET", "/v1/mailbox/abc/messages?after=1&wait=1", R::found, "/v1/mailbox/{id}/messages"},
      {"GET", "/healthz", R::found, "/healthz"},
      {"GET", "/metrics", R::found, "/metrics"},
      {"GET", "/v1/mailbox/a%2Fb/messages", R::notFound, "other"},
      {"GET", "/v1/mailbox//messages", R::notFound, "other"},
      {"GET", "/v1/mailbox/abc/messages/extra", R::notFound, "other"},
      {"GET", "/v1/mailboxes", R::notFound, "other"},
      {"GET", "v1/mailbox/abc/messages", R::notFound, "other"},
      {"GET", "", R::notFound, "other"},
      {"GET", "/v1/mailbox/x.y", R::notFound, "other"},
  };
  for (const Case& c : cases) {
    RouteMatch match = matchRoute(c.method, c.target);
    EXPECT_EQ(match.result, c.result) << c.method << " " << c.target;
    EXPECT_EQ(match.pattern, c.pattern) << c.method << " " << c.target;
  }
  RouteMatch fetch = matchRoute("GET", "/v1/mailbox/abc/messages?wait=1&after=42");
  EXPECT_EQ(fetch.route.kind, RouteKind::fetch);
  EXPECT_EQ(fetch.route.mailboxId, "abc");
  EXPECT_EQ(fetch.route.after, 42u);
  EXPECT_TRUE(fetch.route.wait);
  EXPECT_EQ(matchRoute("GET", "/v1/mailbox/" + std::string(64, 'a')).result, R::methodNotAllowed);
  EXPECT_EQ(matchRoute("GET", "/v1/mailbox/" + std::string(65, 'a')).result, R::notFound);
}

TEST(WaitingFetches, EachWaiterIsWokenOrRemovedExactlyOnce) {
  WaitingFetches waiting;
  int a = 0, b = 0, c = 0;
  auto first = waiting.add("a", [&] { ++a; });
  auto second = waiting.add("a", [&] { ++b; });
  waiting.add("c", [&] { ++c; });
  EXPECT_EQ(waiting.count(), 3u);
  EXPECT_TRUE(waiting.remove(second));
  EXPECT_FALSE(waiting.remove(second));
  waiting.wake("a");
  waiting.wake("a");
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 0);
  EXPECT_FALSE(waiting.remove(first)) << "already woken";
  waiting.wakeAll();
  EXPECT_EQ(c, 1);
  EXPECT_EQ(waiting.count(), 0u);
}

TEST(RelayCredentials, BearerHeadersAreReadStrictly) {
  EXPECT_EQ(bearerCredential("Bearer abc")->text(), "abc");
  EXPECT_EQ(bearerCredential("bearer  abc ")->text(), "abc");
  for (const char* bad : {"", "Bearer", "Bearer ", "Basic abc", "Bearer a b", "Bearer \x7f"})
    EXPECT_FALSE(bearerCredential(bad)) << bad;
  EXPECT_FALSE(bearerCredential("Bearer " + std::string(kMaxCredentialLength + 1, 'a')));
  EXPECT_NE(newCredential().text(), newCredential().text());
  EXPECT_TRUE(isMailboxId(newMailboxId()));
}

}  // namespace
}  // namespace quorvane::relay
