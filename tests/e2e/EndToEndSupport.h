#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Base/JSONReader.h"
#include "Platform/FileDescriptor.h"
#include "support/ChildProcess.h"
#include "support/PAMServices.h"
#include "support/TestSupport.h"

namespace quorvane::testing {

// A program started in the background, its output going to a file; killed (SIGTERM, then
// SIGKILL) when the object dies unless it ended before.
class BackgroundProcess {
 public:
  BackgroundProcess(const std::vector<std::string>& arguments, const std::filesystem::path& output);
  ~BackgroundProcess();
  BackgroundProcess(const BackgroundProcess&) = delete;
  BackgroundProcess& operator=(const BackgroundProcess&) = delete;

  pid_t pid() const { return child_.pid(); }
  // Sends `signal` and waits for the exit: the exit code, or minus the signal.
  int stop(int signal) { return child_.stop(signal, std::chrono::seconds(5)); }
  // Waits at most `timeout` for the exit; nothing if it still runs.
  std::optional<int> waitFor(std::chrono::milliseconds timeout) { return child_.waitFor(timeout); }

 private:
  RunningChild child_;
};

// A program on a pseudo-terminal of its own, as a user runs it: the test reads what it shows and
// types to it (Ctrl-C included, which the terminal turns into SIGINT). Killed when the object dies
// unless it ended before.
class TerminalProcess {
 public:
  explicit TerminalProcess(const std::vector<std::string>& arguments);
  ~TerminalProcess();
  TerminalProcess(const TerminalProcess&) = delete;
  TerminalProcess& operator=(const TerminalProcess&) = delete;

  // Reads until what it showed holds `text`; false after `timeout` or its end without it.
  bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout);
  void type(const std::string& keys);
  // Waits at most `timeout` for the exit, reading what it shows meanwhile.
  std::optional<int> waitFor(std::chrono::milliseconds timeout);
  // Everything it showed so far.
  const std::string& output() const { return output_; }

 private:
  void readFor(std::chrono::milliseconds wait);

  FileDescriptor terminal_;
  RunningChild child_;
  std::string output_;
};

// A TCP port on 127.0.0.1 that was free a moment ago.
int freeLoopbackPort();

// The whole system in a temporary home: HOME and XDG_DATA_HOME point into it (for this process
// and the programs it starts), the agent runs on its sockets, SSH_AUTH_SOCK names its agent
// socket. The agent verifies presence with a private PAM configuration in the home ("pam"),
// pam_permit unless a test chooses another with usePAM.
class QuorvaneHome {
 public:
  QuorvaneHome();
  ~QuorvaneHome();

  const std::filesystem::path& home() const { return directory_.path(); }
  std::filesystem::path agentSocket() const;
  // ssh to the current user at 127.0.0.1:`port` through this home's agent and known_hosts, with
  // no ssh configuration read, running `remote` there (`forwardAgent`: with -A).
  std::vector<std::string> sshCommand(int port, const std::vector<std::string>& remote,
                                      bool forwardAgent = false) const;

  // Runs `quorvane` with arguments; fails the test on a non-zero exit unless `mayFail`.
  CommandResult quorvane(const std::vector<std::string>& arguments, bool mayFail = false);
  // Runs `quorvane` with `typed` as its standard input (answers to verification prompts).
  CommandResult quorvaneTyping(const std::vector<std::string>& arguments, const std::string& typed);
  // Replaces the agent's private PAM service; it takes effect at the next verification.
  void usePAM(PAMService service);
  // `quorvane ... --json`, parsed.
  JSON quorvaneJSON(const std::vector<std::string>& arguments);
  // Waits until exactly `count` requests are pending and returns them.
  JSON waitForPending(size_t count);
  // Approves the single pending request (waiting for it first).
  void approveNext(const std::vector<std::string>& extra = {});
  // The newest activity entry.
  JSON lastEntry();
  // Makes the key `name` and returns an ssh-keygen command that signs a small file with it
  // through the agent (namespace "file"); each run of it is one request.
  std::vector<std::string> signingCommand(const std::string& name);

  void startAgent();
  void stopAgent();
  // Given to the agent after its own arguments at the next startAgent.
  std::vector<std::string> agentArguments;

 private:
  TemporaryDirectory directory_;
  std::unique_ptr<BackgroundProcess> agent_;
};

// An sshd on a loopback port, in a temporary folder, accepting the public keys given for the
// user running the test.
class SSHServer {
 public:
  // `extraConfig` is appended to the server's sshd_config.
  SSHServer(const std::filesystem::path& folder, const std::vector<std::string>& authorizedKeys,
            const std::string& extraConfig = "");

  int port() const { return port_; }
  // The host key's public line ("ssh-ed25519 AAAA...") and fingerprint.
  const std::string& hostKeyLine() const { return hostKeyLine_; }
  std::string hostKeyFingerprint() const;
  // The known_hosts line for this server.
  std::string knownHostsLine() const;

 private:
  std::filesystem::path folder_;
  int port_ = 0;
  std::string hostKeyLine_;
  std::unique_ptr<BackgroundProcess> process_;
};

// The user name that the tests log in as (the user running them).
std::string currentUserName();

}  // namespace quorvane::testing
