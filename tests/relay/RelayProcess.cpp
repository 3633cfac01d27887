#include "relay/RelayProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "support/TestSupport.h"

namespace quorvane::testing {

using namespace std::chrono_literals;

namespace {

std::vector<char*> argumentVector(std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return argv;
}

}  // namespace

RelayProcess::RelayProcess(const std::vector<std::string>& arguments,
                           const std::filesystem::path& log) {
  std::vector<std::string> all = {QUORVANE_RELAY_BINARY};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv = argumentVector(all);
  int output[2];
  if (::pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = ::fork();
  if (pid == 0) {
    // Ends with the test program, even when that one crashes.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int error = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::dup2(output[1], STDOUT_FILENO);
    ::dup2(error, STDERR_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  child_ = RunningChild(pid);
  ::close(output[1]);
  // The first line, within 10 s.
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (firstLine_.find('\n') == std::string::npos &&
         std::chrono::steady_clock::now() < deadline) {
    pollfd ready{output[0], POLLIN, 0};
    if (::poll(&ready, 1, 100) <= 0) continue;
    char chunk[256];
    ssize_t size = ::read(output[0], chunk, sizeof chunk);
    if (size <= 0) break;
    firstLine_.append(chunk, static_cast<size_t>(size));
  }
  ::close(output[0]);
  if (auto newline = firstLine_.find('\n'); newline != std::string::npos)
    firstLine_.resize(newline);
  // "quorvane-relay listening on https://127.0.0.1:PORT/"
  auto colon = firstLine_.rfind(':');
  if (colon != std::string::npos) port_ = std::atoi(firstLine_.c_str() + colon + 1);
  EXPECT_NE(port_, 0) << "the relay did not say where it listens: " << firstLine_ << "\n"
                      << readFile(log);
}

RelayProcess::~RelayProcess() { stop(SIGKILL); }

std::pair<int, std::string> runRelayToEnd(const std::vector<std::string>& arguments,
                                          const std::filesystem::path& folder) {
  std::vector<std::string> all = {QUORVANE_RELAY_BINARY};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const std::filesystem::path log = folder / "refusal.log";
  std::filesystem::remove(log);
  std::vector<std::string> shell = {"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>" + log.string()};
  shell.insert(shell.end(), all.begin(), all.end());
  CommandResult result = runCommand(shell);
  return {result.exitCode, readFile(log)};
}

}  // namespace quorvane::testing
