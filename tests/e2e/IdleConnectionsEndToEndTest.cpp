#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <vector>

#include "Platform/FileDescriptor.h"
#include "e2e/EndToEndSupport.h"

namespace quorvane::testing {
namespace {

// A connection that will never send anything; invalid when the agent does not take it.
FileDescriptor connectSilently(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval patience{5, 0};  // a full backlog makes connect wait; the test fails instead
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return {};
  return socket;
}

// Programs that keep an agent connection open and silent (editors, forwarded sessions) cost the
// agent nothing: with 200 of them connected, ssh-add lists the keys and a signature goes through.
TEST(IdleConnections, DoNotKeepTheAgentFromAnsweringOthers) {
  QuorvaneHome quorvane;
  const std::vector<std::string> sign = quorvane.signingCommand("signer");
  quorvane.quorvane({"rules", "add", "--name", "files", "--decision", "allow", "--purpose",
                     "signature:file", "--key", "signer", "--yes"});
  std::vector<FileDescriptor> idle;
  for (int i = 0; i < 200; ++i) {
    idle.push_back(connectSilently(quorvane.agentSocket()));
    ASSERT_TRUE(idle.back()) << "connection " << i << " was refused";
  }
  const CommandResult listed = runCommand({"timeout", "10", "ssh-add", "-L"});
  EXPECT_EQ(listed.exitCode, 0) << listed.output;
  EXPECT_NE(listed.output.find("signer"), std::string::npos) << listed.output;
  const std::vector<std::string> timed = [&] {
    std::vector<std::string> command{"timeout", "10"};
    command.insert(command.end(), sign.begin(), sign.end());
    return command;
  }();
  EXPECT_EQ(runCommand(timed).exitCode, 0);
}

}  // namespace
}  // namespace quorvane::testing
