#include "support/TestSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "Base/Hex.h"

namespace quorvane::testing {

Bytes hex(std::string_view text) {
  std::string digits;
  for (char c : text)
    if (c != ' ') digits.push_back(c);
  auto bytes = hexDecode(digits);
  EXPECT_TRUE(bytes.has_value()) << "bad hex literal: " << text;
  return bytes.value_or(Bytes{});
}

std::filesystem::path testDataPath(const std::string& name) {
  return std::filesystem::path(QUORVANE_TEST_DATA_DIR) / name;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  EXPECT_TRUE(stream.good()) << "cannot read " << path;
  std::ostringstream contents;
  contents << stream.rdbuf();
  return contents.str();
}

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quorvane-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::filesystem::path& path, std::string_view contents) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  EXPECT_TRUE(stream.good()) << "cannot write " << path;
}

CommandResult runCommand(const std::vector<std::string>& arguments,
                         const std::filesystem::path& standardInput) {
  // Everything the child needs is prepared before fork: a child of a threaded process may only
  // make async-signal-safe calls until exec (another thread may have held the allocator's lock).
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  int pipeFds[2];
  // Close-on-exec, so that a program started meanwhile by another thread does not hold the
  // pipe open and keep this read from ending.
  if (pipe2(pipeFds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    int input = open(standardInput.c_str(), O_RDONLY);
    if (input < 0) _exit(126);
    dup2(input, STDIN_FILENO);
    dup2(pipeFds[1], STDOUT_FILENO);
    close(pipeFds[0]);
    close(pipeFds[1]);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  close(pipeFds[1]);
  CommandResult result;
  char buffer[4096];
  ssize_t count;
  while ((count = read(pipeFds[0], buffer, sizeof buffer)) > 0) result.output.append(buffer, count);
  close(pipeFds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return condition();
}

}  // namespace quorvane::testing
