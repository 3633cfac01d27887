#include "e2e/EndToEndSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "Platform/FileDescriptor.h"

namespace quorvane::testing {

using namespace std::chrono_literals;

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& arguments,
                                     const std::filesystem::path& output) {
  // Prepared before fork: the child of a threaded process must not allocate before exec.
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    int in = ::open("/dev/null", O_RDONLY);
    ::dup2(in, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(out, STDERR_FILENO);
    ::setpgid(0, 0);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  child_ = RunningChild(pid);
}

BackgroundProcess::~BackgroundProcess() { stop(SIGTERM); }

TerminalProcess::TerminalProcess(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  int terminal = -1;
  const pid_t pid = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid == 0) {
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  if (pid < 0) throw std::runtime_error("forkpty failed");
  terminal_ = FileDescriptor(terminal);
  child_ = RunningChild(pid);
}

TerminalProcess::~TerminalProcess() { child_.stop(SIGKILL, std::chrono::seconds(5)); }

void TerminalProcess::readFor(std::chrono::milliseconds wait) {
  pollfd entry{terminal_.get(), POLLIN, 0};
  if (::poll(&entry, 1, static_cast<int>(wait.count())) <= 0) return;
  char chunk[4096];
  // After the program's end the terminal reads as an error (EIO): nothing more comes.
  const ssize_t got = ::read(terminal_.get(), chunk, sizeof chunk);
  if (got > 0)
    output_.append(chunk, static_cast<size_t>(got));
  else
    std::this_thread::sleep_for(wait);
}

bool TerminalProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (output_.find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    readFor(std::chrono::milliseconds(50));
  }
  return true;
}

void TerminalProcess::type(const std::string& keys) {
  ASSERT_EQ(::write(terminal_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

std::optional<int> TerminalProcess::waitFor(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    readFor(std::chrono::milliseconds(50));
    if (auto code = child_.waitFor(std::chrono::milliseconds(0))) {
      readFor(std::chrono::milliseconds(0));
      return code;
    }
    if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
  }
}

int freeLoopbackPort() {
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return 0;
  return ntohs(address.sin_port);
}

std::string currentUserName() {
  passwd* entry = ::getpwuid(::getuid());
  return entry != nullptr ? entry->pw_name : "root";
}

QuorvaneHome::QuorvaneHome() {
  ::setenv("HOME", home().c_str(), 1);
  ::setenv("XDG_DATA_HOME", (home() / "data").c_str(), 1);
  ::setenv("SSH_AUTH_SOCK", agentSocket().c_str(), 1);
  // No machine's own TPM: the tests that want one start a software TPM and name it first.
  ::setenv("QUORVANE_TPM_TCTI", ("device:" + (home() / "no-tpm").string()).c_str(), 0);
  std::filesystem::create_directories(home() / ".ssh");
  usePAM(PAMService::permit);
  startAgent();
}

QuorvaneHome::~QuorvaneHome() { stopAgent(); }

std::filesystem::path QuorvaneHome::agentSocket() const {
  return home() / ".ssh" / "quorvane" / "agent.sock";
}

std::vector<std::string> QuorvaneHome::sshCommand(int port, const std::vector<std::string>& remote,
                                                  bool forwardAgent) const {
  std::vector<std::string> command = {
      "ssh",
      "-F",
      "/dev/null",
      "-o",
      "BatchMode=yes",
      "-o",
      "UserKnownHostsFile=" + (home() / ".ssh" / "known_hosts").string(),
      "-o",
      "IdentityAgent=" + agentSocket().string(),
      "-p",
      std::to_string(port)};
  if (forwardAgent) command.push_back("-A");
  command.push_back(currentUserName() + "@127.0.0.1");
  command.insert(command.end(), remote.begin(), remote.end());
  return command;
}

void QuorvaneHome::startAgent() {
  std::vector<std::string> arguments{QUORVANE_AGENT_BINARY, "--pam-config-dir",
                                     (home() / "pam").string()};
  arguments.insert(arguments.end(), agentArguments.begin(), agentArguments.end());
  agent_ = std::make_unique<BackgroundProcess>(arguments, home() / "agent.log");
  EXPECT_TRUE(eventually([&] {
    return std::filesystem::exists(home() / ".ssh" / "quorvane" / "control.sock");
  })) << readFile(home() / "agent.log");
}

void QuorvaneHome::stopAgent() {
  if (agent_) {
    EXPECT_EQ(agent_->stop(SIGTERM), 0) << readFile(home() / "agent.log");
  }
  agent_.reset();
}

CommandResult QuorvaneHome::quorvane(const std::vector<std::string>& arguments, bool mayFail) {
  std::vector<std::string> command = {QUORVANE_CLI_BINARY};
  command.insert(command.end(), arguments.begin(), arguments.end());
  CommandResult result = runCommand(command);
  if (!mayFail) {
    EXPECT_EQ(result.exitCode, 0) << "quorvane " << arguments.front();
  }
  return result;
}

CommandResult QuorvaneHome::quorvaneTyping(const std::vector<std::string>& arguments,
                                           const std::string& typed) {
  writeFile(home() / "typed", typed);
  std::vector<std::string> command = {QUORVANE_CLI_BINARY};
  command.insert(command.end(), arguments.begin(), arguments.end());
  CommandResult result = runCommand(command, home() / "typed");
  std::filesystem::remove(home() / "typed");
  return result;
}

void QuorvaneHome::usePAM(PAMService service) { writePAMService(home() / "pam", service); }

JSON QuorvaneHome::quorvaneJSON(const std::vector<std::string>& arguments) {
  std::vector<std::string> withJSON = arguments;
  withJSON.push_back("--json");
  return JSON::parse(quorvane(withJSON).output);
}

JSON QuorvaneHome::waitForPending(size_t count) {
  JSON pending;
  EXPECT_TRUE(eventually([&] {
    pending = quorvaneJSON({"pending"});
    return pending.size() == count;
  })) << pending.dump();
  return pending;
}

void QuorvaneHome::approveNext(const std::vector<std::string>& extra) {
  JSON pending = waitForPending(1);
  if (pending.size() != 1) return;
  std::vector<std::string> command = {"approve", pending[0]["id"].get<std::string>()};
  command.insert(command.end(), extra.begin(), extra.end());
  quorvane(command);
}

std::vector<std::string> QuorvaneHome::signingCommand(const std::string& name) {
  quorvane({"keys", "generate", name});
  const auto publicKey = home() / (name + ".pub");
  writeFile(publicKey, quorvane({"keys", "public", name}).output);
  writeFile(home() / "message", "release 1.0\n");
  return {"ssh-keygen",
          "-Y",
          "sign",
          "-n",
          "file",
          "-f",
          publicKey.string(),
          (home() / "message").string()};
}

JSON QuorvaneHome::lastEntry() {
  JSON entries = quorvaneJSON({"log", "--limit", "1"});
  return entries.empty() ? JSON() : entries[0];
}

SSHServer::SSHServer(const std::filesystem::path& folder,
                     const std::vector<std::string>& authorizedKeys, const std::string& extraConfig)
    : folder_(folder) {
  std::filesystem::create_directories(folder_);
  EXPECT_EQ(runCommand({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f",
                        (folder_ / "host_key").string()})
                .exitCode,
            0);
  std::string line = readFile(folder_ / "host_key.pub");
  hostKeyLine_ = line.substr(0, line.find(' ', line.find(' ') + 1));
  std::string keys;
  for (const std::string& key : authorizedKeys) keys += key + "\n";
  writeFile(folder_ / "authorized_keys", keys);
  port_ = freeLoopbackPort();
  writeFile(folder_ / "sshd_config",
            "Port " + std::to_string(port_) + "\nListenAddress 127.0.0.1\nHostKey " +
                (folder_ / "host_key").string() + "\nAuthorizedKeysFile " +
                (folder_ / "authorized_keys").string() +
                "\nStrictModes no\nPasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                "UsePAM no\nPermitRootLogin prohibit-password\nAllowAgentForwarding yes\n"
                "PidFile " +
                (folder_ / "sshd.pid").string() + "\n" + extraConfig);
  std::filesystem::create_directories("/run/sshd");
  process_ = std::make_unique<BackgroundProcess>(
      std::vector<std::string>{"/usr/sbin/sshd", "-D", "-e", "-f",
                               (folder_ / "sshd_config").string()},
      folder_ / "sshd.log");
  EXPECT_TRUE(eventually([&] {
    FileDescriptor probe(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port_));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::connect(probe.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  })) << readFile(folder_ / "sshd.log");
}

std::string SSHServer::hostKeyFingerprint() const {
  CommandResult result =
      runCommand({"ssh-keygen", "-l", "-E", "sha256", "-f", (folder_ / "host_key.pub").string()});
  std::string output = result.output;
  size_t start = output.find("SHA256:");
  return output.substr(start, output.find(' ', start) - start);
}

std::string SSHServer::knownHostsLine() const {
  return "[127.0.0.1]:" + std::to_string(port_) + " " + hostKeyLine_;
}

}  // namespace quorvane::testing
