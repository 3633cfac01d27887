#include "cli/Commands.h"

namespace quorvane::cli {

void addDevicesCommands(CLI::App& app) {
  CLI::App* devices = app.add_subcommand(
      "devices", "devices that approve for this computer: pair, list, remove, allow");
  devices->require_subcommand(1);
  addDevicesPairCommand(*devices);
}

}  // namespace quorvane::cli
