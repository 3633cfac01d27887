#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include "e2e/EndToEndSupport.h"

namespace quorvane::testing {
namespace {

using namespace std::chrono_literals;

// `quorvane watch` driven through a FIFO as its standard input: it shows exactly the requests
// that wait, drops one that ends elsewhere at once, ignores typing while nothing waits, and
// follows the agent when it stops and comes back.
TEST(Watch, ShowsExactlyWhatWaitsAndFollowsTheAgent) {
  QuorvaneHome quorvane;
  const std::vector<std::string> sign = quorvane.signingCommand("signer");
  const auto fifo = quorvane.home() / "typed";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto output = quorvane.home() / "watch.out";
  BackgroundProcess watch(
      {"sh", "-c", "exec \"$0\" watch < \"$1\"", QUORVANE_CLI_BINARY, fifo.string()}, output);
  // The FIFO opens for writing once the watch has opened its end.
  int typing = -1;
  ASSERT_TRUE(eventually([&] {
    typing = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    return typing >= 0;
  })) << readFile(output);
  ::fcntl(typing, F_SETFL, 0);  // blocking writes; the descriptor stays out of the programs started
  auto type = [&](const std::string& text) {
    ASSERT_EQ(::write(typing, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  };
  auto shows = [&](const std::string& text) {
    return eventually([&] { return readFile(output).find(text) != std::string::npos; });
  };

  ASSERT_TRUE(shows("Waiting for signature requests")) << readFile(output);
  type("o\n");
  EXPECT_TRUE(shows("Nothing is waiting; that was not an answer.")) << readFile(output);

  auto first = std::async(std::launch::async, [&] { return runCommand(sign); });
  const std::string firstID = quorvane.waitForPending(1)[0]["id"];
  ASSERT_TRUE(shows(firstID)) << readFile(output);
  quorvane.quorvane({"deny", firstID});
  EXPECT_TRUE(shows("This request ended")) << readFile(output);
  EXPECT_NE(first.get().exitCode, 0);

  auto second = std::async(std::launch::async, [&] { return runCommand(sign); });
  const std::string secondID = quorvane.waitForPending(1)[0]["id"];
  ASSERT_TRUE(shows(secondID)) << readFile(output);
  type("o\n");
  EXPECT_EQ(second.get().exitCode, 0) << readFile(output);

  quorvane.stopAgent();
  EXPECT_TRUE(shows("The agent stopped; waiting for it to come back")) << readFile(output);
  quorvane.startAgent();
  EXPECT_TRUE(shows("Connected to the agent.")) << readFile(output);
  ::close(typing);  // the end of input ends the watch
  EXPECT_EQ(watch.waitFor(10s), 0) << readFile(output);
}

// Deleting a key ends the requests that wait for it: nobody can approve what can no longer sign.
TEST(PendingRequests, ForADeletedKeyEndAtOnce) {
  QuorvaneHome quorvane;
  const std::vector<std::string> sign = quorvane.signingCommand("doomed");
  auto signing = std::async(std::launch::async, [&] { return runCommand(sign); });
  const std::string id = quorvane.waitForPending(1)[0]["id"];
  quorvane.quorvane({"keys", "delete", "doomed", "--yes"});
  EXPECT_TRUE(eventually([&] { return quorvane.quorvaneJSON({"pending"}).empty(); }));
  EXPECT_EQ(quorvane.quorvane({"approve", id}, true).exitCode, 1);
  EXPECT_NE(signing.get().exitCode, 0);

  // The one entry, the request's end, is counted in the singular.
  EXPECT_EQ(quorvane.quorvane({"log", "purge", "--before", "2100-01-01", "--yes"}).output,
            "Deleted 1 entry.\n");
}

}  // namespace
}  // namespace quorvane::testing
