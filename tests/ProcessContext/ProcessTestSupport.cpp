#include "ProcessTestSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

extern char** environ;

namespace quorvane::testing {

Listener::Listener() : path_(directory_.path() / "agent.sock") {
  descriptor_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
  if (descriptor_ < 0 ||
      bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(descriptor_, 8) != 0)
    throw std::runtime_error("cannot listen on " + path_.string());
}

Listener::~Listener() { close(descriptor_); }

int Listener::accept(int seconds) {
  pollfd ready{descriptor_, POLLIN, 0};
  if (poll(&ready, 1, seconds * 1000) != 1) return -1;
  return ::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC);
}

Child::Child(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment,
             const std::filesystem::path& directory, const std::string& program) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable; ++variable) {
    std::string text(*variable);
    if (!environment.contains(text.substr(0, text.find('=')))) variables.push_back(text);
  }
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
  std::vector<char*> argv, envp;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  for (const std::string& variable : variables) envp.push_back(const_cast<char*>(variable.c_str()));
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  std::string executable = program.empty() ? programPath(arguments.at(0)).string() : program;

  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    setpgid(0, 0);
    int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    if (chdir(directory.c_str()) != 0) _exit(126);
    execve(executable.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  setpgid(pid_, pid_);  // also from here, so that the group exists before any kill
}

Child::~Child() {
  if (reaped_) return;
  kill(-pid_, SIGKILL);
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

int Child::wait(int seconds) {
  for (int tick = 0; tick < seconds * 100; ++tick) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      reaped_ = true;
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    usleep(10'000);
  }
  return -1;
}

std::filesystem::path programPath(const std::string& name) {
  if (name.find('/') != std::string::npos) return std::filesystem::canonical(name);
  const char* path = std::getenv("PATH");
  std::stringstream directories(path ? path : "/usr/bin:/bin");
  std::string directory;
  while (std::getline(directories, directory, ':')) {
    std::filesystem::path candidate = std::filesystem::path(directory) / name;
    if (access(candidate.c_str(), X_OK) == 0) return std::filesystem::canonical(candidate);
  }
  ADD_FAILURE() << name << " is not in PATH";
  return {};
}

}  // namespace quorvane::testing
