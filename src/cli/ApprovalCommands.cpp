#include <unistd.h>

#include <iostream>
#include <map>

#include "ControlProtocol/ControlClient.h"
#include "ControlProtocol/ControlMessages.h"
#include "PromptModel/PromptRequest.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"

namespace quorvane::cli {

const std::map<std::string, double> kWindows = {{"5m", 300},  {"15m", 900},   {"30m", 1800},
                                                {"1h", 3600}, {"12h", 43200}, {"24h", 86400}};

void showRequest(const JSON& request) {
  const JSON& origin = request["origin"];
  std::cout << "\n" << request.value("reason", "") << "\n";
  std::cout << "  request  " << request.value("id", "") << " (expires "
            << request.value("expiresAt", "") << ")\n";
  std::cout << "  key      " << request["key"].value("name", "") << "  "
            << request["key"].value("fingerprint", "") << "\n";
  if (request.contains("hostDisplay"))
    std::cout << "  host     " << request.value("hostDisplay", "") << "\n";
  if (request.contains("hostKeyFingerprint"))
    std::cout << "  host key " << request.value("hostKeyFingerprint", "") << "\n";
  if (origin.contains("claimedReason"))
    std::cout << "  says     “" << origin.value("claimedReason", "") << "” (its own claim)\n";
  std::cout << "  program  " << origin.value("appName", "") << "\n";
  for (const auto& path : origin.value("chainPaths", JSON::array()))
    std::cout << "           " << path.get<std::string>() << "\n";
  if (origin.contains("workingDirectory"))
    std::cout << "  folder   " << origin.value("workingDirectory", "") << "\n";
  if (request.value("remoteOffline", false)) std::cout << "  " << kRemoteOfflineText << "\n";
}

namespace {

JSON answerMessage(const std::string& id, bool approve, const std::string& frontend) {
  return {{"message", "answer"}, {"id", id}, {"approve", approve}, {"frontend", frontend}};
}

}  // namespace

void addApprovalCommands(CLI::App& app) {
  static bool pendingJSON = false;
  CLI::App* pending = app.add_subcommand("pending", "list signature requests waiting for you");
  addJSONFlag(pending, pendingJSON);
  static bool pendingShow = false;
  pending->add_flag("--show", pendingShow,
                    "ask the agent to bring up its waiting requests (the show-pending shortcut)");
  pending->callback([] {
    if (pendingShow) {
      // A notification: without a running agent nothing is waiting, and that is no failure.
      auto answer = postToAgent({{"message", std::string(kShowPendingMessage)}});
      JSON requests = answer ? answer->value("pending", JSON::array()) : JSON::array();
      if (pendingJSON) return printJSON(requests);
      if (requests.empty()) std::cout << "Nothing is waiting.\n";
      for (const JSON& request : requests) showRequest(request);
      return;
    }
    JSON answer = askAgent({{"message", "pending"}});
    if (pendingJSON) return printJSON(answer["pending"]);
    if (answer["pending"].empty()) std::cout << "Nothing is waiting.\n";
    for (const JSON& request : answer["pending"]) showRequest(request);
  });

  static std::string approveID, approveWindow;
  CLI::App* approve = app.add_subcommand("approve", "let a waiting request sign");
  approve->add_option("ID", approveID, "the request's id (see quorvane pending)")->required();
  approve
      ->add_option("--window", approveWindow,
                   "also let the same program use the key for this purpose for a while")
      ->check(CLI::IsMember({"5m", "15m", "30m", "1h", "12h", "24h"}));
  approve->callback([] {
    JSON message = answerMessage(approveID, true, "quorvane approve");
    if (!approveWindow.empty()) message["windowSeconds"] = kWindows.at(approveWindow);
    askAgentWithPresence(message);
    std::cout << "Approved.\n";
  });

  static std::string denyID;
  static bool denyBlock = false;
  CLI::App* deny = app.add_subcommand("deny", "refuse a waiting request");
  deny->add_option("ID", denyID, "the request's id (see quorvane pending)")->required();
  deny->add_flag("--block", denyBlock, "also block the program for a while");
  deny->callback([] {
    JSON message = answerMessage(denyID, false, "quorvane deny");
    message["block"] = denyBlock;
    askAgent(message);
    std::cout << "Denied.\n";
  });

  app.add_subcommand("watch", "show each signature request as it comes and answer it")
      ->callback(watchRequests);
}

void addLockCommands(CLI::App& app) {
  // Like every shortcut this only tells a running agent; with none running nothing can sign.
  app.add_subcommand("lock", "refuse every signature until you unlock")->callback([] {
    postToAgent({{"message", std::string(kLockAllMessage)}});
    std::cout << "All SSH keys are locked.\n";
  });
  app.add_subcommand("unlock", "let keys sign again")->callback([] {
    askAgentWithPresence({{"message", "unlock"}});
    std::cout << "Unlocked.\n";
  });
}

bool confirm(const std::string& question) {
  if (!::isatty(STDIN_FILENO)) return false;
  std::cout << question << " [y/N] " << std::flush;
  std::string answer;
  return std::getline(std::cin, answer) && (answer == "y" || answer == "Y" || answer == "yes");
}

}  // namespace quorvane::cli
