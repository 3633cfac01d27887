#include "agent/AgentProgram.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iostream>
#include <set>
#include <stdexcept>
#include <thread>

#include "AgentEngine/Agent.h"
#include "AgentEngine/AgentConnection.h"
#include "AgentEngine/KnownHosts.h"
#include "AgentEngine/LocalApprover.h"
#include "AgentEngine/OriginBuilder.h"
#include "AgentEngine/PresenceGate.h"
#include "AgentState/KeychainLockStore.h"
#include "AgentState/PairingFiles.h"
#include "AgentState/PresenceSetting.h"
#include "AgentState/PromptSetting.h"
#include "AgentState/RemotePause.h"
#include "AgentState/RulesFile.h"
#include "AgentState/SealedHostPinStore.h"
#include "AgentState/SupportState.h"
#include "Base/Counted.h"
#include "ControlProtocol/SocketPaths.h"
#include "Platform/PAMPresenceVerifier.h"
#include "Platform/Paths.h"
#include "Platform/SocketIO.h"
#include "ProcessContext/ProcessChain.h"
#include "ProcessContext/ProcessContextError.h"
#include "RemoteApproval/RacingApprover.h"
#include "TPM/TPMHardwareKeys.h"
#include "agent/ConnectionServer.h"
#include "agent/ControlService.h"
#include "agent/DaemonError.h"
#include "agent/FrameServer.h"
#include "agent/ProgressReports.h"
#include "agent/PromptLauncher.h"
#include "agent/RemoteApprovalSetup.h"

namespace quorvane {
namespace {

void say(const std::string& text) { std::fprintf(stderr, "quorvane-agent: %s\n", text.c_str()); }

// Every client connection holds a descriptor, so the soft open-file limit (often 1024) is raised
// to the hard one: thousands of idle connections are then no more than thousands of descriptors.
void raiseOpenFileLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
    say("could not raise the open-file limit; fewer clients can be connected at once");
}

// One agent-socket client: its requests, answered one at a time.
class AgentSession final : public FrameServer::Session {
 public:
  template <typename... Arguments>
  explicit AgentSession(Arguments&&... arguments)
      : connection_(std::forward<Arguments>(arguments)...) {}

  Bytes answer(ByteView body, ClientWatch& watch) override {
    return connection_.handle(body, watch).framed();
  }

 private:
  AgentConnection connection_;
};

// Everything the running agent holds, wired together.
struct RunningAgent {
  SupportState support = SupportState::open();
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<TPMHardwareKeys> tpm = std::make_shared<TPMHardwareKeys>();
  std::shared_ptr<KeyStore> keys = support.openKeyStore(tpm);
  std::shared_ptr<ActivityStore> log = support.openActivityLog(true);
  std::shared_ptr<LocalApprover> approver = std::make_shared<LocalApprover>(*clock);
  AnnouncementBoard announcements;
  AncestorCache ancestors;
  std::shared_ptr<SealedHostPinStore> pins = std::make_shared<SealedHostPinStore>(support);
  std::unique_ptr<Agent> agent;
  std::unique_ptr<PresenceGate> presence;
  // Remote approval's state; the service is last, so that it stops before what its callbacks
  // use goes.
  Mutex remoteMutex;
  bool pausedHere GUARDED_BY(remoteMutex) = false;  // paused, also if that could not be saved
  std::string remoteState GUARDED_BY(remoteMutex);  // the last line said about it
  std::function<void()> remoteStatusListener GUARDED_BY(remoteMutex);
  std::optional<RemoteApprovalSetup> remoteSetup GUARDED_BY(remoteMutex);
  std::atomic<uint64_t> remoteGeneration{0};
  std::atomic<bool> remoteRelayOffline{false};
  std::shared_ptr<RemoteApprovalService> remote GUARDED_BY(remoteMutex);

  explicit RunningAgent(const std::filesystem::path& pamConfigDirectory) {
    presence = std::make_unique<PresenceGate>(
        std::make_shared<PAMPresenceVerifier>(PAMPresenceVerifier::currentUserName().value_or(""),
                                              pamConfigDirectory),
        *clock, presenceVerificationEnabled(support));
    if (!pamConfigDirectory.empty())
      say("presence verification reads its PAM service from " + pamConfigDirectory.string());
    // Requests that rules send to paired devices are asked there and here at once; a device's
    // answer ends the request here as answered elsewhere.
    auto racing = std::make_shared<RacingApprover>(
        std::make_shared<ReportingApprover>(approver, say), [this] { return remoteService(); },
        [this](const UUID& id, const ApprovalResult& result) {
          return approver->answer(id, result);
        });
    AgentServices services{keys,
                           racing,
                           std::make_shared<ReportingActivityLog>(log, say),
                           std::make_shared<KnownHostsResolver>(std::vector<std::filesystem::path>{
                               homeFolder() / ".ssh" / "known_hosts"}),
                           pins,
                           std::make_shared<KeychainLockStore>(support.keychain),
                           clock};
    agent = std::make_unique<Agent>(std::move(services), PolicyEngine{});
    if (tpm->available())
      say("TPM keys are made and used in the TPM at " + tpm->tcti());
    else
      say("no usable TPM at " + tpm->tcti() + " (" + tpm->problem().value_or("unknown") +
          "); TPM keys cannot sign");
    reload();
  }

  // Re-reads keys, rules and host pins. A rules file that was tampered with counts as no rules.
  void reload() {
    try {
      keys->reload();
    } catch (const std::exception& error) {
      say(std::string("keys.json could not be read: ") + error.what());
    }
    pins->reload();
    RulesFile rules = RulesFile::read(support);
    if (rules.state == RulesFile::State::tampered)
      say("rules.json was changed outside Quorvane and is ignored; every request asks");
    else if (rules.state == RulesFile::State::unreadable)
      say("rules.json could not be read (" + rules.problem + "); every request asks");
    agent->replaceRules(rules.rules);
    announcements.prune(clock->now());
    endRequestsForDeletedKeys();
    presence->setRequired(presenceVerificationEnabled(support));
    if (!presence->required())
      say("presence verification is off: an answer from any of your programs approves");
    else if (auto problem = presence->problem())
      say("presence verification cannot run: " + *problem +
          "; approvals, unlock and remote resume are refused until it can");
    else if (presence->accountCanNeverPass())
      say("your account has no usable password, so presence verification can never succeed and "
          "nothing can be approved; set one with passwd, or run: quorvane presence off");
    refreshRemoteApproval();
    say("serving " + counted(static_cast<int64_t>(keys->records().size()), "key", "keys"));
  }

  // A request for a key deleted meanwhile can no longer sign: it ends now, so that nobody is told
  // that their approval went through.
  void endRequestsForDeletedKeys() {
    const std::vector<KeyRecord> records = keys->records();
    for (const ApprovalRequest& request : approver->pending())
      if (std::ranges::none_of(
              records, [&](const KeyRecord& record) { return record.id == request.key.id; }))
        approver->answer(request.id, {ApprovalResult::Cancelled{}});
  }

  void pauseRemote() {
    {
      MutexLock lock(remoteMutex);
      pausedHere = true;
    }
    if (setRemoteApprovalPaused(*support.keychain, true) != kKeychainSuccess)
      say("the remote-approval pause could not be saved; it lasts until the agent stops");
    refreshRemoteApproval();
  }

  void resumeRemote() {
    if (setRemoteApprovalPaused(*support.keychain, false) != kKeychainSuccess)
      throw std::runtime_error("the remote-approval setting could not be saved");
    {
      MutexLock lock(remoteMutex);
      pausedHere = false;
    }
    reload();
  }

  // The service that asks paired devices, or none while remote approval is unavailable.
  std::shared_ptr<RemoteApprovalService> remoteService() {
    MutexLock lock(remoteMutex);
    return remote;
  }

  // Whether requests meant for paired devices must be approved here because the relay is out of
  // reach.
  bool remoteOffline() const { return remoteRelayOffline.load(); }

  // Called when remote approval turns available, unavailable, offline or online.
  void onRemoteStatusChange(std::function<void()> listener) {
    MutexLock lock(remoteMutex);
    remoteStatusListener = std::move(listener);
  }

  // Remote approval runs while a relay is set, this computer has its protocol keys and its own
  // mailbox there, a device is paired, and the user has not paused it. The service is kept
  // while that setup stays the same, so that requests waiting on it go on.
  void refreshRemoteApproval() {
    bool paused = false;
    {
      MutexLock lock(remoteMutex);
      paused = pausedHere;
    }
    paused = paused || remoteApprovalPaused(*support.keychain);
    std::string missing = "paused (quorvane remote resume turns it back on)";
    std::optional<RemoteApprovalSetup> setup;
    if (!paused) setup = readRemoteApprovalSetup(support, missing);

    std::shared_ptr<RemoteApprovalService> retired;
    std::string line;
    {
      MutexLock lock(remoteMutex);
      if (!setup) {
        retired = std::move(remote);
        remoteSetup.reset();
      } else if (!remote || !remoteSetup || !remoteSetup->sameAs(*setup)) {
        retired = std::move(remote);
        remoteRelayOffline = false;
        remote = makeRemoteApprovalService(support, *setup, clock,
                                           remoteOptions(++remoteGeneration, *setup));
      }
      if (setup) remoteSetup = setup;
      line = setup ? "remote approval is available through " + setup->relay.baseURL + " (" +
                         counted(static_cast<int64_t>(setup->pairedDevices), "paired device",
                                 "paired devices") +
                         ")"
                   : "remote approval is unavailable: " + missing;
      if (line == remoteState)
        line.clear();
      else
        remoteState = line;
    }
    agent->setRemoteApprovalAvailable(setup.has_value());
    if (!line.empty()) say(line);
    tellRemoteStatus();
    // `retired` stops here, outside the lock; requests that still wait on it keep it alive.
  }

  RemoteApprovalService::Options remoteOptions(uint64_t generation, RemoteApprovalSetup setup) {
    RemoteApprovalService::Options options;
    options.report = say;
    options.onOfflineChange = [this, generation](bool offline) {
      if (generation != remoteGeneration.load()) return;  // a service that was replaced
      remoteRelayOffline = offline;
      say(offline ? "remote approval is offline: the relay cannot be reached, so requests for "
                    "paired devices are answered on this computer"
                  : "remote approval is online again");
      tellRemoteStatus();
    };
    options.onUnpair = [this, setup = std::move(setup)](const Bytes& deviceID) {
      try {
        auto name = forgetUnpairedDevice(support, setup, deviceID, say);
        if (!name) return;
        say("the paired device “" + *name + "” unpaired itself and was removed");
        if (loadPairedDevices(support).empty()) {
          agent->setRemoteApprovalAvailable(false);
          say("remote approval is unavailable: no device is paired (quorvane devices pair)");
          tellRemoteStatus();
        }
      } catch (const std::exception& error) {
        say(std::string("a device unpaired itself, but devices.json could not be updated: ") +
            error.what());
      }
    };
    return options;
  }

  void tellRemoteStatus() {
    std::function<void()> listener;
    {
      MutexLock lock(remoteMutex);
      listener = remoteStatusListener;
    }
    if (listener) listener();
  }

  // A new client of the agent socket: its peer is captured now, at accept, and every request
  // of the connection is judged as coming from it.
  std::unique_ptr<FrameServer::Session> openAgentSession(int fd) {
    PeerOrigin peer;
    uint64_t startTime = 0;
    try {
      peer = capture(fd, ::getuid(), &startTime, &ancestors);
    } catch (const ProcessContextError&) {
      return nullptr;  // another user's process, or one that is already gone: closed unanswered
    }
    return std::make_unique<AgentSession>(*agent, announcements, *clock, buildRequestOrigin(peer),
                                          claimedHostOf(peer),
                                          ProcessInstance{peer.peerPID, startTime});
  }
};

// Says what the dialog's start did, once for each reason that keeps recurring (a missing program,
// no graphical session), so that the output does not repeat itself at every request.
class DialogReports {
 public:
  void report(PromptLauncher::Outcome outcome) {
    using Outcome = PromptLauncher::Outcome;
    if (outcome == Outcome::started) {
      say("opened the approval dialog");
      return;
    }
    if (outcome != Outcome::noSession && outcome != Outcome::programMissing &&
        outcome != Outcome::startFailed)
      return;
    MutexLock lock(mutex_);
    if (!told_.insert(outcome).second) return;
    if (outcome == Outcome::noSession)
      say("no graphical session, so no approval dialog: answer with quorvane watch");
    else if (outcome == Outcome::programMissing)
      say("quorvane-prompt is not installed beside the agent, so no approval dialog: answer with "
          "quorvane watch");
    else
      say("the approval dialog could not be started: answer with quorvane watch");
  }

 private:
  Mutex mutex_;
  std::set<PromptLauncher::Outcome> told_ GUARDED_BY(mutex_);
};

// Removes a listener's socket file when the program leaves, also when a later step of the start
// fails: a failed start leaves behind nothing it made.
struct SocketFileRemoval {
  const UnixListener& listener;
  ~SocketFileRemoval() { listener.removeFile(); }
};

}  // namespace

int runAgentProgram(const AgentProgramOptions& options) {
  // Signals go to one thread that waits for them; every other thread has them blocked.
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  raiseOpenFileLimit();

  try {
    const auto agentPath = options.agentSocket.empty() ? agentSocketPath() : options.agentSocket;
    const auto controlPath =
        options.controlSocket.empty() ? controlSocketPath() : options.controlSocket;
    RunningAgent running(options.pamConfigDirectory);
    UnixListener agentListener = UnixListener::open(agentPath);
    const SocketFileRemoval agentFile{agentListener};
    UnixListener controlListener = UnixListener::open(controlPath);
    const SocketFileRemoval controlFile{controlListener};

    ControlService control(
        *running.agent, *running.approver, *running.presence,
        {[&] { running.reload(); }, [&] { running.pauseRemote(); }, [&] { running.resumeRemote(); },
         [&](bool enabled) { savePresenceVerification(running.support, enabled); },
         [&](const KeyRecord& key, const SecureBytes& pin) { running.keys->checkPIN(key, pin); },
         [&] { return running.remoteOffline(); }});
    // The frontends learn at once when requests for paired devices must be answered here.
    running.onRemoteStatusChange([&] { control.remoteStatusChanged(); });
    // The desktop dialog, started for a request that nobody is there to answer.
    PromptLauncher launcher({options.promptProgram.empty()
                                 ? PromptLauncher::besideThisProgram("quorvane-prompt")
                                 : options.promptProgram,
                             {"--control-socket", controlPath.string()},
                             [&] { return promptStartsAutomatically(running.support); },
                             [&] { return control.watchers(); }});
    DialogReports dialogReports;
    const int launching = running.approver->subscribe([&](const LocalApprover::Event& event) {
      if (event.request) dialogReports.report(launcher.requestWaiting());
    });
    FrameServer agentServer(agentListener, [&](int fd) { return running.openAgentSession(fd); },
                            {.maxConnections = options.maxConnections});
    ConnectionServer controlServer(
        controlListener, [&](int fd, std::stop_token stop) { control.serve(fd, stop); }, {});

    std::cout << "SSH_AUTH_SOCK=" << agentPath.string() << "; export SSH_AUTH_SOCK;" << std::endl;
    say("stop with Ctrl-C");

    std::stop_source stop;
    std::jthread agentThread([&] { agentServer.run(stop.get_token()); });
    std::jthread controlThread([&] { controlServer.run(stop.get_token()); });

    // Every second, the confirmations of approval windows that ended (and the PINs of hardware
    // keys that they hold) are let go, whether or not anything asks for a signature.
    for (;;) {
      const timespec second{1, 0};
      const int received = sigtimedwait(&signals, nullptr, &second);
      if (received < 0) {
        running.agent->forgetEndedWindows(running.clock->now());
        continue;
      }
      if (received == SIGHUP) {
        say("reloading");
        running.reload();
        continue;
      }
      break;
    }
    say("stopping");
    stop.request_stop();
    agentThread.join();
    controlThread.join();
    running.onRemoteStatusChange(nullptr);
    running.approver->unsubscribe(launching);
    return 0;
  } catch (const std::exception& error) {
    say(error.what());
    return 1;
  }
}

}  // namespace quorvane
