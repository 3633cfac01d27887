#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace quorvane::testing {

// A listening Unix stream socket in a fresh directory.
class Listener {
 public:
  Listener();
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  const std::filesystem::path& directory() const { return directory_.path(); }
  const std::filesystem::path& path() const { return path_; }
  // The next connection, or -1 after `seconds` without one. The caller closes it.
  int accept(int seconds = 20);

 private:
  TemporaryDirectory directory_;
  std::filesystem::path path_;
  int descriptor_;
};

// A child process in a process group of its own, killed with its whole group (and reaped) when
// this object dies.
class Child {
 public:
  // Runs `arguments` (argv[0] is looked up in PATH unless it holds a slash) with `program` as the
  // executable when given, in `directory`, with the environment plus `environment`; standard
  // streams go to /dev/null.
  Child(const std::vector<std::string>& arguments,
        const std::map<std::string, std::string>& environment,
        const std::filesystem::path& directory, const std::string& program = "");
  // Wraps a process forked by the test.
  explicit Child(pid_t pid) : pid_(pid) {}
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return pid_; }
  // Waits at most `seconds` for the child to end; its exit code, or -1 (then it is killed).
  int wait(int seconds = 20);

 private:
  pid_t pid_;
  bool reaped_ = false;
};

// The canonical path of a program found in PATH; fails the test when there is none.
std::filesystem::path programPath(const std::string& name);

}  // namespace quorvane::testing
