#include <iostream>

#include "SSHWire/SSHPublicKey.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

struct {
  bool json = false;
  std::string program, key;
  bool all = false;
} options;

void listBlocks() {
  JSON answer = askAgent({{"message", "blocks"}});
  if (options.json) return printJSON(answer["blocks"]);
  if (answer["blocks"].empty()) {
    std::cout << "No blocks: every program may ask for every key.\n";
    return;
  }
  for (const JSON& block : answer["blocks"]) std::cout << block.value("text", "") << "\n";
  std::cout << "Lift one with quorvane unblock PROGRAM, --key NAME or --all.\n";
}

void unblock() {
  const int chosen =
      (options.program.empty() ? 0 : 1) + (options.key.empty() ? 0 : 1) + (options.all ? 1 : 0);
  if (chosen != 1) throw CommandFailure("name a program, or give --key NAME or --all", 2);
  JSON message = {{"message", "unblock"}};
  if (!options.program.empty()) message["program"] = options.program;
  if (!options.key.empty())
    message["key"] = fingerprint(
        findKey(SupportState::open().openKeyStore()->records(), options.key).publicKeyBlob);
  if (options.all) message["all"] = true;
  const size_t lifted = askAgentWithPresence(message)["lifted"].get<size_t>();
  std::cout << (lifted == 0
                    ? std::string("No block matched; nothing lifted.")
                    : "Lifted " + counted(static_cast<int64_t>(lifted), "block", "blocks") + ".")
            << "\n";
}

}  // namespace

void showBlocks() {
  const JSON answer = askAgent({{"message", "blocks"}});
  for (const JSON& block : answer.value("blocks", JSON::array()))
    std::cout << "  blocked: " << block.value("text", "") << " (quorvane unblock lifts it)\n";
}

void addBlockCommands(CLI::App& app) {
  CLI::App* blocks = app.add_subcommand(
      "blocks", "programs blocked from a key after denials or unanswered requests, and until when");
  addJSONFlag(blocks, options.json);
  blocks->callback(listBlocks);

  CLI::App* lift = app.add_subcommand(
      "unblock", "lift blocks now (a decision of yours: it verifies your presence like approve)");
  lift->add_option("PROGRAM", options.program,
                   "the blocked program: its name (git), path or tree key, as blocks shows it");
  lift->add_option("--key", options.key, "lift every block of this key (name or fingerprint)");
  lift->add_flag("--all", options.all, "lift every block");
  lift->callback(unblock);
}

}  // namespace quorvane::cli
