#include <unistd.h>

#include <chrono>
#include <iostream>

#include "Base/Base64.h"
#include "ConfigKit/GitConfigBefore.h"
#include "ConfigKit/GitSigningSetup.h"
#include "Platform/AtomicFile.h"
#include "Platform/Clock.h"
#include "Platform/Paths.h"
#include "Platform/RunProgram.h"
#include "Platform/WholeFile.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

// The program that Git runs to sign: it points SSH_AUTH_SOCK at the agent and runs ssh-keygen.
constexpr const char* kSignHelperName = "quorvane-sign";
// git config's exit code when --unset-all finds nothing to unset.
constexpr int kGitNothingToUnset = 5;
constexpr size_t kMaxAllowedSignersSize = 1 << 20;
constexpr std::chrono::seconds kGitTimeout{60};

// Runs git; a git that cannot be started or does not finish is a failure of the command.
ProgramResult runGit(const std::vector<std::string>& arguments) {
  ProgramResult result = runProgram(arguments, kGitTimeout, ProgramErrors::shown);
  if (result.exitCode < 0) throw CommandFailure("git could not be run, or did not finish");
  return result;
}

struct GitOptions {
  std::string key;
  std::string email;
  std::string repository;
  bool global = false;
  bool signByDefault = false;
  bool undo = false;
  bool json = false;
};
GitOptions gitOptions;

// Which configuration file the command changes, and how to run git config on it.
struct GitScope {
  std::string name;  // "global" or the repository's absolute path
  std::vector<std::string> command;

  ProgramResult config(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), command.begin(), command.end());
    return runGit(arguments);
  }
  void set(std::vector<std::string> arguments) const {
    if (config(arguments).exitCode != 0)
      throw CommandFailure("git config " + arguments.front() + " " + arguments[1] + " failed");
  }
};

GitScope chosenScope() {
  if (gitOptions.repository.empty())
    return {std::string(GitConfigRecord::kGlobalScope), {"git", "config", "--global"}};
  std::error_code error;
  const auto folder = std::filesystem::canonical(gitOptions.repository, error);
  if (error) throw CommandFailure("no folder " + gitOptions.repository);
  if (runGit({"git", "-C", folder.string(), "rev-parse", "--git-dir"}).exitCode != 0)
    throw CommandFailure(folder.string() + " is not a Git repository");
  return {folder.string(), {"git", "-C", folder.string(), "config", "--local"}};
}

// Every value of `key` in the scope's file, in order.
std::vector<std::string> currentValues(const GitScope& scope, const std::string& key) {
  ProgramResult result = scope.config({"-z", "--get-all", key});
  std::vector<std::string> values;
  if (result.exitCode != 0) return values;  // 1: not set
  size_t start = 0;
  for (size_t end = result.output.find('\0'); end != std::string::npos;
       end = result.output.find('\0', start)) {
    values.push_back(result.output.substr(start, end - start));
    start = end + 1;
  }
  return values;
}

std::filesystem::path beforePath() { return supportFolder() / GitConfigBefore::kFileName; }

GitConfigBefore readBefore() {
  WholeFile file = readWholeFile(beforePath(), GitConfigBefore::kMaxFileSize);
  if (file.status == WholeFile::Status::notFound) return {};
  if (file.status != WholeFile::Status::ok)
    throw CommandFailure("cannot read " + beforePath().string());
  try {
    return GitConfigBefore::fromJSON(textOf(file.contents.view()));
  } catch (const DecodingError& error) {
    throw CommandFailure("the undo record " + beforePath().string() + " is damaged (" +
                         error.what() + "); move it away to go on");
  }
}

void writeBefore(const GitConfigBefore& before) {
  createFolders(supportFolder(), 0700);
  if (before.records.empty()) {
    std::filesystem::remove(beforePath());
    return;
  }
  writeFileAtomically(beforePath(), bytesOf(before.toJSON().dump(2) + "\n"), 0600);
}

std::filesystem::path signHelperPath() {
  std::error_code error;
  auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw CommandFailure("cannot find where quorvane is installed");
  auto helper = self.parent_path() / kSignHelperName;
  if (::access(helper.c_str(), X_OK) != 0)
    throw CommandFailure("the signing helper " + helper.string() + " is missing");
  return helper;
}

std::string principalFor(const GitScope& scope) {
  if (!gitOptions.email.empty()) return gitOptions.email;
  std::vector<std::string> prefix = scope.command;
  prefix.pop_back();  // "--global" or "--local": ask for the value in effect there instead
  prefix.insert(prefix.end(), {"--get", "user.email"});
  ProgramResult result = runGit(prefix);
  std::string email = result.output.substr(0, result.output.find('\n'));
  if (result.exitCode != 0 || email.empty())
    throw CommandFailure(
        "Git has no user.email to name you in the allowed-signers file; set it (git config "
        "--global user.email you@example.com) or pass --email");
  return email;
}

// Adds `line` to the allowed-signers file unless it is there already.
void addAllowedSigner(const std::filesystem::path& path, const std::string& line) {
  WholeFile file = readWholeFile(path, kMaxAllowedSignersSize);
  std::string text;
  if (file.status == WholeFile::Status::ok) {
    text = textOf(file.contents.view());
  } else if (file.status != WholeFile::Status::notFound) {
    throw CommandFailure("cannot read " + path.string());
  }
  if (("\n" + text).find("\n" + line + "\n") != std::string::npos) return;
  if (!text.empty() && text.back() != '\n') text += "\n";
  text += line + "\n";
  createFolders(path.parent_path(), 0700);
  writeFileAtomically(path, bytesOf(text), 0600);
}

void setupGit() {
  const GitScope scope = chosenScope();
  const KeyRecord record = findKey(SupportState::open().openKeyStore()->records(), gitOptions.key);
  GitSigningSetup setup;
  setup.publicKeyLine = std::string(rawValue(record.algorithm)) + " " +
                        base64Encode(record.publicKeyBlob) + " " + record.name;
  setup.helperPath = signHelperPath().string();
  setup.allowedSignersPath = (supportFolder() / "allowed_signers").string();
  setup.signCommitsByDefault = gitOptions.signByDefault;
  const std::string signer = setup.allowedSignersLine(principalFor(scope));

  // The earlier values are saved before anything changes, so undo works after a failure midway.
  GitConfigRecord earlier{scope.name, SystemClock().now(), {}};
  for (const GitSetting& setting : setup.settings())
    earlier.settings.push_back({setting.key, currentValues(scope, setting.key)});
  GitConfigBefore before = readBefore();
  before.remember(earlier);
  writeBefore(before);

  addAllowedSigner(setup.allowedSignersPath, signer);
  for (const GitSetting& setting : setup.settings())
    scope.set({"--replace-all", setting.key, setting.value});
  notifyAgentOfChange();

  if (gitOptions.json) {
    JSON settings = JSON::object();
    for (const GitSetting& setting : setup.settings()) settings[setting.key] = setting.value;
    return printJSON({{"scope", scope.name},
                      {"settings", settings},
                      {"allowedSignersFile", setup.allowedSignersPath},
                      {"allowedSigner", signer},
                      {"undoRecord", beforePath().string()}});
  }
  std::cout << "Git (" << scope.name << ") now signs with the key “" << record.name << "”"
            << (gitOptions.signByDefault ? ", every commit and tag" : " when asked (git commit -S)")
            << ".\n";
  for (const GitSetting& setting : setup.settings())
    std::cout << "  " << setting.key << " = " << setting.value << "\n";
  std::cout << "Allowed signer: " << signer << "\nUndo with: quorvane setup git --undo"
            << (scope.name == GitConfigRecord::kGlobalScope ? "" : " --repo " + scope.name) << "\n";
}

void undoGit() {
  const GitScope scope = chosenScope();
  GitConfigBefore before = readBefore();
  const GitConfigRecord* record = before.find(scope.name);
  if (record == nullptr)
    throw CommandFailure("nothing to undo for Git (" + scope.name +
                         "): no earlier values were saved there");
  for (const GitSavedSetting& setting : record->settings) {
    if (setting.values.size() == 1) {
      // Replacing keeps the line where it stood, so the file reads as before.
      scope.set({"--replace-all", setting.key, setting.values.front()});
      continue;
    }
    int code = scope.config({"--unset-all", setting.key}).exitCode;
    if (code != 0 && code != kGitNothingToUnset)
      throw CommandFailure("git config --unset-all " + setting.key + " failed");
    for (const std::string& value : setting.values) scope.set({"--add", setting.key, value});
  }
  const GitConfigRecord undone = *record;
  before.forget(scope.name);
  writeBefore(before);
  notifyAgentOfChange();

  if (gitOptions.json) {
    JSON restored = JSON::object();
    for (const GitSavedSetting& setting : undone.settings) restored[setting.key] = setting.values;
    return printJSON({{"scope", scope.name}, {"restored", restored}});
  }
  std::cout << "Git (" << scope.name << ") is back to its settings of " << undone.savedAt.iso8601()
            << ".\n";
}

}  // namespace

void addGitSetupCommand(CLI::App& setup) {
  CLI::App* git = setup.add_subcommand(
      "git", "sign Git commits and tags with one of your keys through Quorvane");
  git->add_option("--key", gitOptions.key, "name, fingerprint or id of the signing key");
  git->add_flag("--sign-by-default", gitOptions.signByDefault, "sign every commit and tag");
  CLI::Option* global =
      git->add_flag("--global", gitOptions.global, "change your global Git settings (default)");
  git->add_option("--repo", gitOptions.repository, "change only this repository's settings")
      ->excludes(global);
  git->add_option("--email", gitOptions.email,
                  "your address in the allowed-signers file (default: Git's user.email)");
  git->add_flag("--undo", gitOptions.undo, "put back the settings Git had before");
  addJSONFlag(git, gitOptions.json);
  git->callback([] {
    if (gitOptions.undo) return undoGit();
    if (gitOptions.key.empty()) throw CommandFailure("--key is required (see quorvane keys list)");
    setupGit();
  });
}

}  // namespace quorvane::cli
