#include <iostream>

#include "ConfigKit/ConfigKitError.h"
#include "ConfigKit/LineDiff.h"
#include "ConfigKit/SSHConfigEditor.h"
#include "ConfigKit/SafeFileWriter.h"
#include "ControlProtocol/SocketPaths.h"
#include "Platform/Clock.h"
#include "Platform/Paths.h"
#include "Platform/WholeFile.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

// An ssh config larger than this is not something to edit blindly.
constexpr size_t kMaxSSHConfigSize = 4 << 20;

struct SSHOptions {
  std::vector<std::string> exclude;
  bool dryRun = false;
  bool yes = false;
  bool undo = false;
  bool json = false;
};
SSHOptions sshOptions;

std::filesystem::path sshConfigPath() { return homeFolder() / ".ssh" / "config"; }

std::string readSSHConfig(const std::filesystem::path& path) {
  WholeFile file = readWholeFile(path, kMaxSSHConfigSize);
  switch (file.status) {
    case WholeFile::Status::ok: return textOf(file.contents.view());
    case WholeFile::Status::notFound: return "";
    case WholeFile::Status::tooLarge:
      throw CommandFailure(path.string() + " is larger than 4 MiB; edit it by hand");
    case WholeFile::Status::failed: break;
  }
  throw CommandFailure("cannot read " + path.string() + ": " +
                       std::error_code(file.error, std::generic_category()).message());
}

// A config line as the terminal shows it: control characters that could steer the terminal as
// "?", tabs (common indentation in ssh configs) as they are.
std::string shownOnTerminal(std::string line) {
  for (char& c : line)
    if (c != '\t' && (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)) c = '?';
  return line;
}

JSON diffJSON(const std::vector<LineDiff::Line>& lines) {
  JSON array = JSON::array();
  for (const LineDiff::Line& line : lines)
    array.push_back({{"kind", line.kind == LineDiff::Line::Kind::same    ? "same"
                              : line.kind == LineDiff::Line::Kind::added ? "added"
                                                                         : "removed"},
                     {"text", line.text}});
  return array;
}

// The ssh configuration as setup leaves it: without the managed block for --undo, else with it.
std::string sshConfigAfter(const SSHOptions& options, const std::string& before) {
  if (options.undo) return SSHConfigEditor::removingManagedBlock(before);
  SSHConfigEditor editor;
  // Absolute, from the same HOME the agent uses: ssh expands "~" from the password database,
  // which need not be where the agent listens.
  editor.socketPath = SSHConfigEditor::socketPathArgument(agentSocketPath().string());
  for (const std::string& host : options.exclude) SSHConfigEditor::checkHostPattern(host);
  editor.excludedHosts = options.exclude;
  return editor.applying(before);
}

void setupSSH() {
  const SSHOptions& options = sshOptions;
  if (options.json && !options.dryRun && !options.yes)
    throw CommandFailure("--json writes only with --yes (or use --dry-run)");
  if (options.undo && !options.exclude.empty())
    throw CommandFailure("--exclude has no meaning with --undo");

  const std::filesystem::path path = sshConfigPath();
  const std::string before = readSSHConfig(path);
  const std::string after = sshConfigAfter(options, before);

  std::vector<LineDiff::Line> lines;
  std::string preview;
  try {
    lines = LineDiff::lines(before, after);
    std::vector<LineDiff::Line> shown = lines;
    for (LineDiff::Line& line : shown) line.text = shownOnTerminal(std::move(line.text));
    preview = LineDiff::render(shown);
  } catch (const ConfigKitError& error) {
    preview = error.what();
  }
  const bool changed = before != after;
  JSON result = {{"path", path.string()}, {"changed", changed}, {"written", false}};
  if (!lines.empty()) result["diff"] = diffJSON(lines);

  if (!changed) {
    if (options.json) return printJSON(result);
    std::cout << (options.undo
                      ? "There is no Quorvane block in " + path.string() + "; nothing to undo.\n"
                      : path.string() + " already sends ssh to Quorvane; nothing to change.\n");
    return;
  }
  if (!options.json) std::cout << "Changes to " << path.string() << ":\n" << preview << "\n";
  if (options.dryRun) {
    if (options.json) return printJSON(result);
    std::cout << "Dry run: nothing written.\n";
    return;
  }
  confirmChange("Write these changes to " + path.string() + "?", options.yes,
                "write " + path.string());

  auto backup =
      SafeFileWriter::write(after, path, supportFolder() / "backups", SystemClock().now());
  notifyAgentOfChange();
  result["written"] = true;
  if (backup) result["backup"] = backup->string();
  if (options.json) return printJSON(result);
  std::cout << (options.undo ? "Removed the Quorvane block from " : "Wrote ") << path.string()
            << ".";
  if (backup) std::cout << " The earlier file is kept as " << backup->string() << ".";
  std::cout << "\n";
}

}  // namespace

void addSetupCommands(CLI::App& app) {
  CLI::App* setup =
      app.add_subcommand("setup", "make ssh and Git use Quorvane (and undo that again)");
  setup->require_subcommand(1);

  CLI::App* ssh = setup->add_subcommand(
      "ssh", "send every ssh host to Quorvane with a managed block at the top of ~/.ssh/config");
  ssh->add_option("--exclude", sshOptions.exclude,
                  "a host pattern that keeps its own agent (repeat for more)");
  ssh->add_flag("--dry-run", sshOptions.dryRun, "show the change without writing it");
  ssh->add_flag("--yes", sshOptions.yes, "write without asking");
  ssh->add_flag("--undo", sshOptions.undo, "remove the managed block again");
  addJSONFlag(ssh, sshOptions.json);
  ssh->callback(setupSSH);

  addGitSetupCommand(*setup);
}

}  // namespace quorvane::cli
