#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Base/EnumNames.h"
#include "Base/Mutex.h"
#include "Platform/GraphicalSession.h"

namespace quorvane {

// Starts the desktop approval dialog (quorvane-prompt) when a request needs an answer on this
// computer and nobody is there to give it: no frontend (a dialog, `quorvane watch`) is connected
// and no dialog started earlier still runs. The dialog opens in the user's graphical session,
// found at that moment; without one nothing starts and the request waits for `quorvane watch`, a
// paired device or its expiry. Safe to call from many threads.
class PromptLauncher {
 public:
  // What one call did, and why.
  enum class Outcome {
    started,            // the dialog was started
    turnedOff,          // the user turned the automatic start off (`quorvane prompt off`)
    frontendConnected,  // a frontend already shows the requests
    alreadyRunning,     // a dialog started earlier has not ended yet
    noSession,          // no graphical session to open a window in
    programMissing,     // quorvane-prompt is not installed beside the agent
    startFailed,        // the program could not be started
  };
  static constexpr EnumNames<Outcome, 7> kOutcomeNames{
      "PromptLaunch",
      {{{Outcome::started, "started"},
        {Outcome::turnedOff, "turnedOff"},
        {Outcome::frontendConnected, "frontendConnected"},
        {Outcome::alreadyRunning, "alreadyRunning"},
        {Outcome::noSession, "noSession"},
        {Outcome::programMissing, "programMissing"},
        {Outcome::startFailed, "startFailed"}}}};

  struct Options {
    std::filesystem::path program;       // the dialog's executable
    std::vector<std::string> arguments;  // given to it after its name
    std::function<bool()> enabled;       // the user's setting, read at each request
    std::function<int()> frontends;      // how many frontends are connected now
    // The user manager's environment at this moment (readManagerEnvironment), and this
    // process's own (ownSessionEnvironment); replaceable for tests.
    std::function<std::optional<SessionEnvironment>()> managerEnvironment = readManagerEnvironment;
    std::function<SessionEnvironment()> ownEnvironment = ownSessionEnvironment;
  };

  explicit PromptLauncher(Options options);
  // Leaves a running dialog alone: it ends by itself when the agent goes away.
  ~PromptLauncher();
  PromptLauncher(const PromptLauncher&) = delete;
  PromptLauncher& operator=(const PromptLauncher&) = delete;

  // A request waits for an answer on this computer: starts the dialog if it is needed.
  Outcome requestWaiting();

  // The process id of the dialog started last, while it runs.
  std::optional<pid_t> runningDialog();

  // The dialog's executable beside the running program (/proc/self/exe).
  static std::filesystem::path besideThisProgram(const std::string& name);

 private:
  bool dialogRunningLocked() REQUIRES(mutex_);

  Options options_;
  Mutex mutex_;
  pid_t child_ GUARDED_BY(mutex_) = -1;
};

}  // namespace quorvane
