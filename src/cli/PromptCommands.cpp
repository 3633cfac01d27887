#include <iostream>

#include "AgentState/PromptSetting.h"
#include "ControlProtocol/ControlClient.h"
#include "ControlProtocol/ControlMessages.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

void describe(bool automatic) {
  if (automatic)
    std::cout << "The approval dialog opens by itself when a request waits and no quorvane watch "
                 "is running.\n";
  else
    std::cout << "The approval dialog does not open by itself; answer with quorvane watch.\n";
}

}  // namespace

void addPromptCommands(CLI::App& app) {
  CLI::App* prompt = app.add_subcommand(
      "prompt", "show or change whether the agent opens the desktop approval dialog by itself");
  static bool json = false;
  addJSONFlag(prompt, json);
  prompt->callback([prompt] {
    if (!prompt->get_subcommands().empty()) return;
    const bool automatic = promptStartsAutomatically(SupportState::open());
    if (json) return printJSON({{"automatic", automatic}});
    describe(automatic);
  });
  for (const bool automatic : {true, false}) {
    prompt
        ->add_subcommand(automatic ? "on" : "off",
                         automatic ? "open the dialog when a request waits (the default)"
                                   : "never open the dialog; requests wait for quorvane watch, a "
                                     "paired device or their expiry")
        ->callback([automatic] {
          // The agent reads the setting at each request; nothing else needs telling.
          savePromptStartsAutomatically(SupportState::open(), automatic);
          describe(automatic);
        });
  }
}

}  // namespace quorvane::cli
