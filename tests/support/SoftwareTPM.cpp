#include "support/SoftwareTPM.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "support/TestSupport.h"

namespace quorvane::testing {

bool SoftwareTPM::installed() { return runCommand({"sh", "-c", "command -v swtpm"}).exitCode == 0; }

SoftwareTPM::SoftwareTPM(std::filesystem::path folder) : folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_);
  const std::string server = "type=unixio,path=" + (folder_ / "tpm").string();
  const std::string control = "type=unixio,path=" + (folder_ / "tpm.ctrl").string();
  const std::string state = "dir=" + folder_.string();
  const std::string log = (folder_ / "swtpm.log").string();
  std::vector<const char*> argv = {"swtpm",         "socket",       "--tpm2",
                                   "--server",      server.c_str(), "--ctrl",
                                   control.c_str(), "--flags",      "not-need-init,startup-clear",
                                   "--tpmstate",    state.c_str(),  nullptr};
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int in = ::open("/dev/null", O_RDONLY);
    ::dup2(in, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(out, STDERR_FILENO);
    ::execvp(argv[0], const_cast<char* const*>(argv.data()));
    ::_exit(127);
  }
  child_ = RunningChild(pid);
  EXPECT_TRUE(eventually([&] {
    return std::filesystem::exists(folder_ / "tpm") &&
           std::filesystem::exists(folder_ / "tpm.ctrl");
  })) << "swtpm did not start; see "
      << log;
}

SoftwareTPM::~SoftwareTPM() { child_.stop(SIGTERM, std::chrono::seconds(5)); }

std::string SoftwareTPM::tcti() const { return "swtpm:path=" + (folder_ / "tpm").string(); }

}  // namespace quorvane::testing
