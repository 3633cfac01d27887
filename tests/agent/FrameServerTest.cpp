#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "Platform/SocketIO.h"
#include "SSHWire/Framing.h"
#include "agent/FrameIO.h"
#include "agent/FrameServer.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;

// What the test sessions saw of requests that waited.
struct Waits {
  std::atomic<int> started = 0;
  std::atomic<int> endedByHangup = 0;
  std::atomic<int> endedByShutdown = 0;
};

// Echoes each request, except "wait", which waits until its client hangs up or the server stops.
class EchoSession final : public FrameServer::Session {
 public:
  explicit EchoSession(Waits& waits) : waits_(waits) {}

  Bytes answer(ByteView body, ClientWatch& watch) override {
    if (Bytes(body.begin(), body.end()) != bytesOf("wait")) return Framing::frame(body);
    ++waits_.started;
    std::stop_token token = watch.token();
    while (!token.stop_requested()) std::this_thread::sleep_for(5ms);
    ++(watch.clientGone() ? waits_.endedByHangup : waits_.endedByShutdown);
    return Framing::frame(bytesOf("ended"));
  }

 private:
  Waits& waits_;
};

// A frame server on a real socket in a temporary folder, running until the fixture ends.
struct FrameServing : ::testing::Test {
  testing::TemporaryDirectory home;
  std::filesystem::path socketPath = home.path() / "agent.sock";
  UnixListener listener = UnixListener::open(socketPath);
  Waits waits;
  std::atomic<int> opened = 0;
  FrameServer server{listener,
                     [this](int) {
                       ++opened;
                       return std::make_unique<EchoSession>(waits);
                     },
                     {.runners = 2, .socketCheckInterval = 50ms}};
  std::stop_source stop;
  std::jthread runner{[this] { server.run(stop.get_token()); }};

  ~FrameServing() override {
    stop.request_stop();
    if (runner.joinable()) runner.join();
  }

  FileDescriptor connect() { return connectUnix(socketPath); }

  static bool echoes(int fd, const std::string& text) {
    return writeAll(fd, Framing::frame(bytesOf(text))) && readFrame(fd) == bytesOf(text);
  }
};

// Idle connections hold no thread: with hundreds open and silent, a new client is answered, and
// the server still runs on its few threads.
TEST_F(FrameServing, HundredsOfIdleConnectionsDoNotStopANewClient) {
  std::vector<FileDescriptor> idle;
  for (int i = 0; i < 200; ++i) idle.push_back(connect());
  ASSERT_TRUE(testing::eventually([&] { return server.activeConnections() == 200; }));
  FileDescriptor client = connect();
  EXPECT_TRUE(echoes(client.get(), "ping"));
  EXPECT_LE(server.threadCount(), 2u);
  idle.clear();
  EXPECT_TRUE(testing::eventually([&] { return server.activeConnections() == 1; }));
}

// A client that sends half a frame and stalls, or hangs up mid-frame, delays nobody.
TEST_F(FrameServing, PartialFramesWaitWithoutHoldingOthersUp) {
  FileDescriptor stalled = connect(), leaving = connect();
  ASSERT_TRUE(writeAll(stalled.get(), Bytes{0, 0}));
  const Bytes framed = Framing::frame(bytesOf("never finished"));
  ASSERT_TRUE(writeAll(leaving.get(), ByteView(framed).first(7)));
  FileDescriptor other = connect();
  EXPECT_TRUE(echoes(other.get(), "served"));
  leaving.reset();
  EXPECT_TRUE(testing::eventually([&] { return server.activeConnections() == 2; }));

  // The stalled client completes its frame and is answered.
  ASSERT_TRUE(writeAll(stalled.get(), ByteView(Framing::frame(bytesOf("late"))).subspan(2)));
  EXPECT_EQ(readFrame(stalled.get()), bytesOf("late"));
}

// Requests sent together, in many small writes or one, are answered one by one in order.
TEST_F(FrameServing, RequestsOfOneConnectionAreAnsweredInOrder) {
  FileDescriptor client = connect();
  Bytes all;
  for (int i = 0; i < 50; ++i) {
    const Bytes framed = Framing::frame(bytesOf("request " + std::to_string(i)));
    all.insert(all.end(), framed.begin(), framed.end());
  }
  ASSERT_TRUE(writeAll(client.get(), ByteView(all).first(all.size() / 3)));
  ASSERT_TRUE(writeAll(client.get(), ByteView(all).subspan(all.size() / 3)));
  for (int i = 0; i < 50; ++i)
    ASSERT_EQ(readFrame(client.get()), bytesOf("request " + std::to_string(i)));
}

struct FrameCase {
  std::string name;
  Bytes sent;
  bool answered;
};

class FrameLimits : public FrameServing, public ::testing::WithParamInterface<FrameCase> {};

// A frame of length zero or above the wire limit, or one cut short, closes the connection without
// an answer; the largest allowed frame is answered.
TEST_P(FrameLimits, BadFramesCloseWithoutAnAnswer) {
  FileDescriptor client = connect();
  ASSERT_TRUE(writeAll(client.get(), GetParam().sent));
  ::shutdown(client.get(), SHUT_WR);
  std::optional<Bytes> answer = readFrame(client.get());
  EXPECT_EQ(answer.has_value(), GetParam().answered);
  EXPECT_TRUE(testing::eventually([&] { return server.activeConnections() == 0; }));
}

INSTANTIATE_TEST_SUITE_P(
    Framing, FrameLimits,
    ::testing::Values(FrameCase{"WholeFrame", Framing::frame(bytesOf("\x0b")), true},
                      FrameCase{"LargestFrame", Framing::frame(Bytes(256 * 1024, 'x')), true},
                      FrameCase{"LengthZero", Bytes{0, 0, 0, 0}, false},
                      FrameCase{"OneOverTheLimit", Bytes{0, 4, 0, 1}, false},  // 262145
                      FrameCase{"TruncatedBody", Bytes{0, 0, 0, 5, 11}, false}),
    [](const ::testing::TestParamInfo<FrameCase>& tested) { return tested.param.name; });

// A request that waits keeps its thread, not the loop: fifty other clients are served meanwhile,
// and the waiting request learns at once when its client hangs up.
TEST_F(FrameServing, AWaitingRequestLetsOthersBeServedAndSeesItsClientLeave) {
  FileDescriptor waiting = connect();
  ASSERT_TRUE(writeAll(waiting.get(), Framing::frame(bytesOf("wait"))));
  ASSERT_TRUE(testing::eventually([&] { return waits.started == 1; }));

  std::vector<std::jthread> clients;
  std::atomic<int> answered = 0;
  for (int i = 0; i < 50; ++i)
    clients.emplace_back([&, i] {
      FileDescriptor client = connect();
      if (echoes(client.get(), "client " + std::to_string(i))) ++answered;
    });
  clients.clear();
  EXPECT_EQ(answered, 50);
  EXPECT_EQ(waits.endedByHangup + waits.endedByShutdown, 0);

  waiting.reset();
  EXPECT_TRUE(testing::eventually([&] { return waits.endedByHangup == 1; }));
  // The thread that stood in for the waiting one parks again: no thread per waiting request
  // stays in the loop.
  EXPECT_LE(server.threadCount(), 3u);
}

// Stopping the server ends the waits of requests in flight as a shutdown, not a hang-up, and
// returns although clients are still connected.
TEST_F(FrameServing, StoppingEndsWaitsAndReturns) {
  FileDescriptor waiting = connect(), idle = connect();
  ASSERT_TRUE(writeAll(waiting.get(), Framing::frame(bytesOf("wait"))));
  ASSERT_TRUE(testing::eventually([&] { return waits.started == 1; }));
  stop.request_stop();
  runner.join();
  EXPECT_EQ(waits.endedByShutdown, 1);
  EXPECT_EQ(waits.endedByHangup, 0);
}

// A deleted socket file is made again, and clients reach the server through it.
TEST_F(FrameServing, MakesItsSocketFileAgain) {
  std::filesystem::remove(socketPath);
  // The file appears when the new socket is bound, a moment before it listens.
  FileDescriptor client;
  ASSERT_TRUE(testing::eventually([&] { return bool(client = connect()); }));
  EXPECT_TRUE(echoes(client.get(), "after"));
}

// Clients the session factory refuses (another user's, for the agent) are closed unanswered;
// past the connection bound, new clients are closed at once.
TEST(FrameServer, RefusedClientsAndClientsPastTheBoundAreClosed) {
  testing::TemporaryDirectory home;
  UnixListener listener = UnixListener::open(home.path() / "agent.sock");
  Waits waits;
  std::atomic<int> opened = 0;
  FrameServer server(listener,
                     [&](int) -> std::unique_ptr<FrameServer::Session> {
                       if (opened++ == 0) return nullptr;
                       return std::make_unique<EchoSession>(waits);
                     },
                     {.maxConnections = 2});
  std::jthread runner([&](std::stop_token stop) { server.run(stop); });

  // The server may close a turned-away client before its request is written: only the answer
  // that never comes is checked.
  FileDescriptor refused = connectUnix(listener.path());
  writeAll(refused.get(), Framing::frame(bytesOf("hello")));
  EXPECT_FALSE(readFrame(refused.get()));
  FileDescriptor first = connectUnix(listener.path()), second = connectUnix(listener.path());
  ASSERT_TRUE(testing::eventually([&] { return server.activeConnections() == 2; }));
  FileDescriptor third = connectUnix(listener.path());
  writeAll(third.get(), Framing::frame(bytesOf("hello")));
  EXPECT_FALSE(readFrame(third.get()));
  ASSERT_TRUE(writeAll(first.get(), Framing::frame(bytesOf("hello"))));
  EXPECT_EQ(readFrame(first.get()), bytesOf("hello"));
}

}  // namespace
}  // namespace quorvane
