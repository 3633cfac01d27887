#include "agent/PromptLauncher.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace quorvane {
namespace {

// This process's environment with the session variables replaced by `session`'s (and those the
// session lacks removed, so that a stale display of the agent's is not used).
std::vector<std::string> dialogEnvironment(const SessionEnvironment& session) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const std::string_view name = text.substr(0, text.find('='));
    if (std::ranges::find(kSessionVariables, name) == std::end(kSessionVariables))
      environment.emplace_back(text);
  }
  for (const auto& [name, value] : session) environment.push_back(name + "=" + value);
  return environment;
}

}  // namespace

PromptLauncher::PromptLauncher(Options options) : options_(std::move(options)) {}

PromptLauncher::~PromptLauncher() {
  MutexLock lock(mutex_);
  dialogRunningLocked();  // collects a dialog that has ended
}

std::filesystem::path PromptLauncher::besideThisProgram(const std::string& name) {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path(name) : self.parent_path() / name;
}

bool PromptLauncher::dialogRunningLocked() {
  if (child_ < 0) return false;
  int status = 0;
  const pid_t done = ::waitpid(child_, &status, WNOHANG);
  if (done == 0) return true;
  child_ = -1;  // it ended (or is no child of ours any more)
  return false;
}

std::optional<pid_t> PromptLauncher::runningDialog() {
  MutexLock lock(mutex_);
  if (!dialogRunningLocked()) return std::nullopt;
  return child_;
}

PromptLauncher::Outcome PromptLauncher::requestWaiting() {
  if (options_.enabled && !options_.enabled()) return Outcome::turnedOff;
  if (options_.frontends && options_.frontends() > 0) return Outcome::frontendConnected;
  MutexLock lock(mutex_);
  if (dialogRunningLocked()) return Outcome::alreadyRunning;
  if (::access(options_.program.c_str(), X_OK) != 0) return Outcome::programMissing;
  auto session = graphicalSession(options_.managerEnvironment(), options_.ownEnvironment());
  if (!session) return Outcome::noSession;

  std::vector<std::string> environment = dialogEnvironment(*session);
  std::vector<char*> envp;
  for (std::string& entry : environment) envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::string programText = options_.program.string();
  std::vector<std::string> arguments = options_.arguments;
  std::vector<char*> argv{programText.data()};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  // The dialog gets a session of its own (a Ctrl-C meant for the agent's terminal does not reach
  // it), the default signal handling, and no signal blocked: the agent blocks its signals in every
  // thread and ignores SIGPIPE, and a child would inherit both.
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (int signal : {SIGPIPE, SIGTERM, SIGINT, SIGHUP}) sigaddset(&defaults, signal);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawnattr_setsigdefault(&attributes, &defaults);
  ::posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  pid_t pid = -1;
  const int spawned =
      ::posix_spawn(&pid, programText.c_str(), &actions, &attributes, argv.data(), envp.data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  if (spawned != 0) return Outcome::startFailed;
  child_ = pid;
  return Outcome::started;
}

}  // namespace quorvane
