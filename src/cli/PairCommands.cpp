#include "cli/Commands.h"

namespace quorvane::cli {

void addDevicesPairCommand(CLI::App& devices) {
  devices.add_subcommand("pair", "pair a device that approves for this computer");
}

void addApproverPairCommand(CLI::App& approver) {
  approver.add_subcommand("pair", "pair with a computer whose requests this one approves");
}

}  // namespace quorvane::cli
