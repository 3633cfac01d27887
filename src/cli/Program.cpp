#include "cli/Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Platform/FileDescriptor.h"
#include "cli/CommandSupport.h"

extern char** environ;

namespace quorvane::cli {

ProgramResult runProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  int pipeEnds[2];
  if (::pipe2(pipeEnds, O_CLOEXEC) != 0)
    throw CommandFailure(std::string("cannot make a pipe: ") + std::strerror(errno));
  FileDescriptor readEnd(pipeEnds[0]);
  FileDescriptor writeEnd(pipeEnds[1]);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), STDOUT_FILENO);
  pid_t pid = -1;
  int spawned = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0)
    throw CommandFailure("cannot run " + arguments.front() + ": " + std::strerror(spawned));
  writeEnd.reset();

  ProgramResult result;
  char chunk[4096];
  for (;;) {
    ssize_t got = ::read(readEnd.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    result.output.append(chunk, static_cast<size_t>(got));
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return result;
}

}  // namespace quorvane::cli
