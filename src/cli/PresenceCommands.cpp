#include <iostream>

#include "AgentState/PresenceSetting.h"
#include "AgentState/RemotePause.h"
#include "ControlProtocol/ControlClient.h"
#include "ControlProtocol/ControlMessages.h"
#include "Platform/AccountPassword.h"
#include "Platform/PAMPresenceVerifier.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {

void addPresenceCommands(CLI::App& app) {
  CLI::App* presence = app.add_subcommand(
      "presence", "show or change whether approvals need your password or fingerprint");
  presence->callback([presence] {
    if (!presence->get_subcommands().empty()) return;
    JSON status = askAgent({{"message", "status"}});
    if (!status.value("presenceVerification", true))
      std::cout << "Presence verification is off: any of your programs can approve.\n";
    else if (status.contains("presenceProblem"))
      std::cout << "Presence verification is on but cannot run: "
                << status.value("presenceProblem", "") << "\n";
    else
      std::cout << "Presence verification is on.\n";
  });
  presence->add_subcommand("on", "ask for your password or fingerprint before approvals")
      ->callback([] {
        askAgentWithPresence({{"message", "presence"}, {"enabled", true}});
        std::cout << "Presence verification is on.\n";
      });
  presence
      ->add_subcommand("off",
                       "approve without a password or fingerprint (for machines that have "
                       "neither); verifies one last time first")
      ->callback([] {
        if (ControlClient::connect()) {
          askAgentWithPresence({{"message", "presence"}, {"enabled", false}});
        } else {
          // Without an agent nothing can verify; an account that never could may still choose.
          const auto user = PAMPresenceVerifier::currentUserName();
          if (!user || accountPassword(*user) != AccountPassword::unusable)
            throw CommandFailure(
                "the agent is not running; start it first, since turning verification off needs "
                "one last verification");
          savePresenceVerification(SupportState::open(), false);
        }
        std::cout << "Presence verification is off: any of your programs can approve.\n";
      });
}

void addRemoteCommands(CLI::App& app) {
  CLI::App* remote = app.add_subcommand(
      "remote", "approval on paired devices: pause, resume, the relay and its status");
  remote->require_subcommand(1);
  remote->add_subcommand("pause", "send requests only to this machine for now")->callback([] {
    // The agent remembers the pause; without a running agent it is written here.
    auto answer = postToAgent({{"message", std::string(kPauseRemoteMessage)}});
    if (!answer || !answer->value("ok", false))
      setRemoteApprovalPaused(*SupportState::open().keychain, true);
    std::cout << "Remote approval is paused.\n";
  });
  static bool yes = false;
  CLI::App* resume = remote->add_subcommand("resume", "send requests to your paired devices again");
  resume->add_flag("--yes", yes, "do not ask to confirm");
  resume->callback([] {
    confirmChange("Send requests to your paired devices again?", yes, "resume remote approval",
                  "remote approval stays paused");
    askAgentWithPresence({{"message", "resumeRemote"}});
    std::cout << "Remote approval is on again.\n";
  });
  addRelayCommands(*remote);
}

}  // namespace quorvane::cli
