// What it costs to learn who is asking: one capture per agent connection, here of a peer whose
// chain is six real processes deep (ssh-add under five shells, the top one an orphan adopted by
// init, so that the walk ends there), and the redaction of a typical argument list.
// For the median: ./bench/process_context_bench --benchmark_repetitions=20
//                 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "ProcessContext/ProcessChain.h"
#include "ProcessContext/Redaction.h"

namespace quorvane {
namespace {

const std::string kNest =
    "if [ \"$1\" -gt 0 ]; then sh -c \"$0\" \"$0\" $(($1 - 1)); "
    "else exec ssh-add -l; fi; exit $?";

// ssh-add connected to a socket of this process, waiting for an answer that never comes until
// the connection is closed, which ends the whole chain.
class SixDeepPeer {
 public:
  SixDeepPeer() {
    char pattern[] = "/tmp/quorvane-bench-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    directory_ = pattern;
    std::string socketPath = directory_ + "/agent.sock";
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0)
      throw std::runtime_error("cannot listen");

    pid_t intermediate = fork();
    if (intermediate == 0) {
      if (fork() == 0) {
        setsid();
        int null = open("/dev/null", O_RDWR);
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        setenv("SSH_AUTH_SOCK", socketPath.c_str(), 1);
        execlp("sh", "sh", "-c", kNest.c_str(), kNest.c_str(), "5", nullptr);
        _exit(127);
      }
      _exit(0);  // orphans the top shell
    }
    waitpid(intermediate, nullptr, 0);
    pollfd ready{listener, POLLIN, 0};
    if (poll(&ready, 1, 20'000) != 1) throw std::runtime_error("ssh-add did not connect");
    connection_ = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    close(listener);
  }
  ~SixDeepPeer() {
    close(connection_);
    std::filesystem::remove_all(directory_);
  }
  int connection() const { return connection_; }

 private:
  std::string directory_;
  int connection_ = -1;
};

void BM_CaptureSixDeepChain(benchmark::State& state) {
  static SixDeepPeer peer;
  size_t entries = 0;
  for (auto _ : state) {
    PeerOrigin origin = capture(peer.connection(), getuid());
    entries = origin.chain.size();
    benchmark::DoNotOptimize(origin);
  }
  state.counters["entries"] = static_cast<double>(entries);
}
BENCHMARK(BM_CaptureSixDeepChain)->Unit(benchmark::kMicrosecond);

void BM_RedactArguments(benchmark::State& state) {
  const std::vector<std::string> arguments = {"/usr/bin/ssh",
                                              "-o",
                                              "SendEnv=GIT_PROTOCOL",
                                              "-p",
                                              "22",
                                              "git@github.com",
                                              "git-upload-pack 'example/repository.git'"};
  for (auto _ : state) benchmark::DoNotOptimize(redactArguments(arguments));
}
BENCHMARK(BM_RedactArguments)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace quorvane
