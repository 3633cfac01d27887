#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace quorvane::testing {

// A quorvane-relay started by the test with `arguments` (after the program's name), its standard
// error going to `log`. The constructor waits for the first line of output and reads the port
// from it. Killed with SIGKILL when the object dies, unless it was stopped before.
class RelayProcess {
 public:
  RelayProcess(const std::vector<std::string>& arguments, const std::filesystem::path& log);
  ~RelayProcess();
  RelayProcess(const RelayProcess&) = delete;
  RelayProcess& operator=(const RelayProcess&) = delete;

  pid_t pid() const { return child_.pid(); }
  int port() const { return port_; }
  // The first line of standard output.
  const std::string& firstLine() const { return firstLine_; }
  // Sends `signal` and waits (at most 10 s) for the exit: the exit code, or minus the signal.
  int stop(int signal) { return child_.stop(signal, std::chrono::seconds(10)); }

 private:
  RunningChild child_;
  int port_ = 0;
  std::string firstLine_;
};

// Runs quorvane-relay to its end (for refusals at start): the exit code and standard error.
std::pair<int, std::string> runRelayToEnd(const std::vector<std::string>& arguments,
                                          const std::filesystem::path& folder);

}  // namespace quorvane::testing
