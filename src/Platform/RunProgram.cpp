#include "Platform/RunProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Platform/FileDescriptor.h"

extern char** environ;

namespace quorvane {

ProgramResult runProgram(const std::vector<std::string>& arguments,
                         std::chrono::milliseconds timeout, ProgramErrors errors) {
  ProgramResult result;
  if (arguments.empty()) return result;
  int pipeFDs[2];
  if (::pipe2(pipeFDs, O_CLOEXEC) != 0) return result;
  FileDescriptor reader(pipeFDs[0]), writer(pipeFDs[1]);

  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, writer.get(), STDOUT_FILENO);
  if (errors == ProgramErrors::discarded)
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  int spawned = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  writer = FileDescriptor();
  if (spawned != 0) return result;

  const auto deadline = std::chrono::steady_clock::now() + timeout;
  bool timedOut = false;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      timedOut = true;
      break;
    }
    pollfd entry{reader.get(), POLLIN, 0};
    int ready = ::poll(&entry, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;  // a time-out is noticed at the top of the loop
    char chunk[4096];
    ssize_t got = ::read(reader.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    size_t room = kMaxProgramOutput - result.output.size();
    result.output.append(chunk, std::min(room, static_cast<size_t>(got)));
  }
  if (timedOut) ::kill(pid, SIGKILL);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!timedOut && WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  return result;
}

}  // namespace quorvane
