#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "support/ChildProcess.h"

namespace quorvane::testing {

// A redis-server of the test's own on a free loopback port, keeping nothing on disk, stopped by
// its pid when the object dies. `available()` is false (and nothing runs) when redis-server is
// not installed; tests then skip with a message saying so.
class RedisServerProcess {
 public:
  explicit RedisServerProcess(const std::filesystem::path& folder);
  ~RedisServerProcess();
  RedisServerProcess(const RedisServerProcess&) = delete;
  RedisServerProcess& operator=(const RedisServerProcess&) = delete;

  bool available() const { return child_.pid() > 0; }
  int port() const { return port_; }
  std::string url() const { return "redis://127.0.0.1:" + std::to_string(port_); }

  static constexpr const char* kMissing =
      "redis-server is not installed (Debian package redis-server, listed in "
      "scripts/install-deps.sh); the Redis store is not tested";

 private:
  RunningChild child_;
  int port_ = 0;
};

}  // namespace quorvane::testing
