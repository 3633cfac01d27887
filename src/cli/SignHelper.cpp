// quorvane-sign: the program Git runs to make and check SSH signatures (gpg.ssh.program). It
// runs ssh-keygen with Git's arguments, with SSH_AUTH_SOCK pointing at Quorvane's agent whatever
// it said before, so a commit is signed by Quorvane even in a shell that uses another agent.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <vector>

#include "ControlProtocol/SocketPaths.h"

int main(int argc, char** argv) {
  try {
    const std::string socket = quorvane::agentSocketPath().string();
    if (::setenv("SSH_AUTH_SOCK", socket.c_str(), 1) != 0) {
      std::perror("quorvane-sign: setenv");
      return 127;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvane-sign: %s\n", error.what());
    return 127;
  }
  std::vector<char*> arguments(argv, argv + argc);
  arguments.push_back(nullptr);
  arguments[0] = const_cast<char*>("ssh-keygen");
  ::execvp("ssh-keygen", arguments.data());
  std::perror("quorvane-sign: ssh-keygen");
  return 127;
}
