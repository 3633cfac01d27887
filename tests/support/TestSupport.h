#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Base/Bytes.h"

namespace quorvane::testing {

// Runs `action` and returns the kind of the `Error` it throws; fails the calling test when it
// throws none (and then returns a kind no case expects).
template <typename Error>
typename Error::Kind errorKindOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.kind();
  }
  ADD_FAILURE() << "no error of the expected type thrown";
  return static_cast<typename Error::Kind>(-1);
}

// Bytes from hexadecimal; spaces are ignored so vectors can be grouped ("00 00 00 05").
// A malformed literal fails the calling test.
Bytes hex(std::string_view text);

// The path of a file under tests/data.
std::filesystem::path testDataPath(const std::string& name);

// The whole contents of a file; fails the calling test if it cannot be read.
std::string readFile(const std::filesystem::path& path);

// Polls `condition` every 10 ms for at most `timeout`; whether it came to hold.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds timeout = std::chrono::seconds(10));

// A directory that exists for the life of this object and is removed with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

struct CommandResult {
  int exitCode = -1;
  std::string output;  // standard output only
};

// Runs a program with arguments (no shell) and returns its exit code and standard output.
// Standard input comes from `standardInput` (default /dev/null); standard error passes through to
// the test log.
CommandResult runCommand(const std::vector<std::string>& arguments,
                         const std::filesystem::path& standardInput = "/dev/null");

// Writes `contents` to a new file at `path`; fails the calling test if it cannot.
void writeFile(const std::filesystem::path& path, std::string_view contents);

}  // namespace quorvane::testing
