#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "Platform/SocketIO.h"
#include "SSHWire/Framing.h"
#include "agent/ConnectionServer.h"
#include "agent/DaemonError.h"
#include "agent/FrameIO.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;

struct SocketLayer : ::testing::Test {
  testing::TemporaryDirectory home;
  std::filesystem::path socketPath = home.path() / "quorvane" / "agent.sock";
};

TEST_F(SocketLayer, ListenerMakesAPrivateSocketAndReplacesOnlyStaleOnes) {
  {
    UnixListener first = UnixListener::open(socketPath);
    struct stat info {};
    ASSERT_EQ(::stat(socketPath.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat(socketPath.parent_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    try {
      UnixListener::open(socketPath);
      FAIL() << "a live socket was replaced";
    } catch (const DaemonError& error) {
      EXPECT_EQ(error.kind(), DaemonError::Kind::alreadyRunning);
    }
  }
  // The first listener is closed, its file left behind: stale, so it is replaced.
  ASSERT_TRUE(std::filesystem::exists(socketPath));
  UnixListener second = UnixListener::open(socketPath);
  EXPECT_TRUE(connectUnix(socketPath));

  const std::string tooLong = (home.path() / std::string(120, 'x')).string();
  EXPECT_THROW(UnixListener::open(tooLong), DaemonError);
}

struct FolderCase {
  std::string name;
  mode_t mode;
  bool accepted;
};

class ExistingSocketFolder : public SocketLayer,
                             public ::testing::WithParamInterface<FolderCase> {};

// A folder the agent did not make keeps its mode; one that other users may write to is refused
// unless it is sticky, and then nothing is left in it.
TEST_P(ExistingSocketFolder, KeepsItsModeAndIsRefusedWhenOthersCouldSwapTheSocket) {
  const std::filesystem::path folder = home.path() / "existing";
  std::filesystem::create_directory(folder);
  ASSERT_EQ(::chmod(folder.c_str(), GetParam().mode), 0);
  const std::filesystem::path path = folder / "agent.sock";
  if (GetParam().accepted) {
    UnixListener listener = UnixListener::open(path);
    EXPECT_TRUE(connectUnix(path));
  } else {
    try {
      UnixListener::open(path);
      ADD_FAILURE() << "listened in a folder others can write to";
    } catch (const DaemonError& error) {
      EXPECT_EQ(error.kind(), DaemonError::Kind::socketPath);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder));
  }
  struct stat info {};
  ASSERT_EQ(::stat(folder.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, GetParam().mode);
}

INSTANTIATE_TEST_SUITE_P(Modes, ExistingSocketFolder,
                         ::testing::Values(FolderCase{"Private", 0700, true},
                                           FolderCase{"Readable", 0755, true},
                                           FolderCase{"SharedAndSticky", 01777, true},
                                           FolderCase{"SharedWithEveryone", 0777, false},
                                           FolderCase{"GroupWritable", 0770, false}),
                         [](const ::testing::TestParamInfo<FolderCase>& tested) {
                           return tested.param.name;
                         });

TEST_F(SocketLayer, EveryMissingFolderIsMadePrivate) {
  const std::filesystem::path made = home.path() / "made";
  UnixListener listener = UnixListener::open(made / "inner" / "agent.sock");
  for (const auto& folder : {made, made / "inner"}) {
    struct stat info {};
    ASSERT_EQ(::stat(folder.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u) << folder;
  }
}

TEST_F(SocketLayer, ServerBoundsConnectionsRecreatesItsSocketAndStopsCleanly) {
  UnixListener listener = UnixListener::open(socketPath);
  std::atomic<int> served = 0;
  ConnectionServer server(listener,
                          [&](int fd, std::stop_token) {
                            ++served;
                            while (auto frame = readFrame(fd)) writeAll(fd, Framing::frame(*frame));
                          },
                          {.maxConnections = 2, .socketCheckInterval = 50ms});
  // The runner's own stop token: a failed assertion that leaves the test still stops the server.
  std::jthread runner([&](std::stop_token stop) { server.run(stop); });

  FileDescriptor one = connectUnix(socketPath), two = connectUnix(socketPath);
  FileDescriptor three = connectUnix(socketPath);  // waits in the backlog
  ASSERT_TRUE(one && two && three);
  EXPECT_TRUE(testing::eventually([&] { return served == 2; }));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(served, 2);
  one.reset();
  EXPECT_TRUE(testing::eventually([&] { return served == 3; }));

  std::filesystem::remove(socketPath);
  two.reset();
  // The file appears when the new socket is bound, a moment before it listens.
  FileDescriptor four;
  ASSERT_TRUE(testing::eventually([&] { return bool(four = connectUnix(socketPath)); }));
  ASSERT_TRUE(writeAll(four.get(), Framing::frame(bytesOf("echo"))));
  EXPECT_EQ(readFrame(four.get()), bytesOf("echo"));

  runner.request_stop();
  runner.join();  // returns although clients `three` and `four` are still connected
  EXPECT_EQ(server.activeConnections(), 0u);
}

// Clients one after another are served by the threads already there, not by a thread each.
TEST_F(SocketLayer, ServerReusesItsThreads) {
  UnixListener listener = UnixListener::open(socketPath);
  ConnectionServer server(listener,
                          [&](int fd, std::stop_token) {
                            while (auto frame = readFrame(fd)) writeAll(fd, Framing::frame(*frame));
                          },
                          {.maxConnections = 32});
  std::jthread runner([&](std::stop_token stop) { server.run(stop); });
  for (int i = 0; i < 50; ++i) {
    {
      FileDescriptor client = connectUnix(socketPath);
      ASSERT_TRUE(writeAll(client.get(), Framing::frame(bytesOf("ping"))));
      ASSERT_EQ(readFrame(client.get()), bytesOf("ping"));
    }
    // Once its thread has seen the client go, the next client finds that thread free. (Without
    // the wait, a loaded machine can leave each thread still reading when the next client comes.)
    ASSERT_TRUE(testing::eventually([&] { return server.activeConnections() == 0; }));
  }
  EXPECT_LE(server.poolSize(), 3u);
  runner.request_stop();
}

}  // namespace
}  // namespace quorvane
