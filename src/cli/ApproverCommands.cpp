#include "cli/Commands.h"

namespace quorvane::cli {

void addApproverCommands(CLI::App& app) {
  CLI::App* approver = app.add_subcommand(
      "approver", "approve requests of another computer from this one: pair, watch, answer");
  approver->require_subcommand(1);
  addApproverPairCommand(*approver);
}

}  // namespace quorvane::cli
