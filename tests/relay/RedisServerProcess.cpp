#include "relay/RedisServerProcess.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

namespace quorvane::testing {
namespace {

int freePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(address.sin_port);
  ::close(fd);
  return port;
}

bool answersPing(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bool ok = false;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::send(fd, "PING\r\n", 6, MSG_NOSIGNAL) == 6) {
    char reply[16] = {};
    ok = ::recv(fd, reply, sizeof reply - 1, 0) > 0 && std::strncmp(reply, "+PONG", 5) == 0;
  }
  ::close(fd);
  return ok;
}

std::string findProgram() {
  for (const char* path : {"/usr/bin/redis-server", "/usr/local/bin/redis-server"})
    if (::access(path, X_OK) == 0) return path;
  return "";
}

}  // namespace

RedisServerProcess::RedisServerProcess(const std::filesystem::path& folder) {
  const std::string program = findProgram();
  if (program.empty()) return;
  port_ = freePort();
  std::vector<std::string> arguments = {program,  "--port",        std::to_string(port_),
                                        "--bind", "127.0.0.1",     "--save",
                                        "",       "--appendonly",  "no",
                                        "--dir",  folder.string(), "--daemonize",
                                        "no",     "--loglevel",    "warning"};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    // Ends with the test program, even when that one crashes.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  child_ = RunningChild(pid);
  // Ready within 5 s, polled every 20 ms.
  for (int i = 0; i < 250 && !answersPing(port_); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

RedisServerProcess::~RedisServerProcess() { child_.stop(SIGTERM, std::chrono::seconds(5)); }

}  // namespace quorvane::testing
