#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/CommandSupport.h"
#include "cli/Commands.h"

int main(int argc, char** argv) {
  CLI::App app{
      "quorvane: your SSH keys, the rules that decide what they sign, and the log of every\n"
      "request. The agent itself is quorvane-agent; commands that change keys or rules tell a\n"
      "running agent to reload."};
  app.set_version_flag("--version", "quorvane " QUORVANE_VERSION);
  app.require_subcommand(1);
  quorvane::cli::addKeyCommands(app);
  quorvane::cli::addApprovalCommands(app);
  quorvane::cli::addLockCommands(app);
  quorvane::cli::addBlockCommands(app);
  quorvane::cli::addRuleCommands(app);
  quorvane::cli::addLogCommands(app);
  quorvane::cli::addSetupCommands(app);
  quorvane::cli::addDoctorCommands(app);
  quorvane::cli::addPresenceCommands(app);
  quorvane::cli::addRemoteCommands(app);
  quorvane::cli::addPromptCommands(app);
  quorvane::cli::addDevicesCommands(app);
  quorvane::cli::addApproverCommands(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  } catch (const quorvane::cli::CommandFailure& failure) {
    std::cerr << "quorvane: " << failure.what() << "\n";
    return failure.exitCode;
  } catch (const std::exception& error) {
    std::cerr << "quorvane: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
