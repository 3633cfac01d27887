#include <gtest/gtest.h>

#include <future>

#include "e2e/EndToEndSupport.h"

namespace quorvane::testing {
namespace {

// A "deny and block" answer blocks the program for the key: the block is listed, shown by
// doctor, refuses the next request without a prompt, and is lifted by the user.
TEST(Blocks, AreListedShownAndLiftedByTheUser) {
  QuorvaneHome quorvane;
  const std::vector<std::string> sign = quorvane.signingCommand("signer");
  auto signing = std::async(std::launch::async, [&] { return runCommand(sign); });
  JSON pending = quorvane.waitForPending(1);
  ASSERT_EQ(pending.size(), 1u);
  quorvane.quorvane({"deny", pending[0]["id"].get<std::string>(), "--block"});
  EXPECT_NE(signing.get().exitCode, 0);

  JSON blocks = quorvane.quorvaneJSON({"blocks"});
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0]["keyName"], "signer");
  EXPECT_TRUE(blocks[0].contains("program"));
  EXPECT_NE(blocks[0]["text"].get<std::string>().find(" may not use “signer” until "),
            std::string::npos);
  EXPECT_NE(quorvane.quorvane({"doctor"}, true).output.find(blocks[0]["text"].get<std::string>()),
            std::string::npos);

  EXPECT_NE(runCommand(sign).exitCode, 0) << "refused at once, without a prompt";
  EXPECT_EQ(quorvane.lastEntry()["decidedBy"].get<std::string>().rfind("blocked until", 0), 0u);

  EXPECT_EQ(quorvane.quorvane({"unblock"}, true).exitCode, 2) << "which blocks is not said";
  EXPECT_EQ(quorvane.quorvane({"unblock", "--key", "signer"}).output, "Lifted 1 block.\n");
  EXPECT_EQ(quorvane.quorvaneJSON({"blocks"}).size(), 0u);
  EXPECT_EQ(quorvane.quorvane({"unblock", "--all"}).output, "No block matched; nothing lifted.\n");
}

}  // namespace
}  // namespace quorvane::testing
