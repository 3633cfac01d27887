#include <cstring>
#include <iostream>

#include "AgentState/RelaySetting.h"
#include "AgentState/RemotePause.h"
#include "Diagnostics/Diagnostics.h"
#include "Diagnostics/SystemProbes.h"
#include "Platform/Clock.h"
#include "Platform/WholeFile.h"
#include "RelayClient/RelayClient.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

// A certificate file this large is not a list of certificate authorities.
constexpr size_t kCAFileLimit = 4 << 20;

struct RelayOptions {
  std::string url;
  std::string caFile;
  bool clear = false;
  bool yes = false;
  bool json = false;
};
RelayOptions options;

// The CA file as an absolute path, once it is known to hold a PEM certificate: a relay whose
// certificate cannot be checked would otherwise only fail later, at the first approval.
std::filesystem::path checkedCAFile(const std::string& text) {
  const std::filesystem::path path = std::filesystem::absolute(text).lexically_normal();
  WholeFile file = readWholeFile(path, kCAFileLimit);
  switch (file.status) {
    case WholeFile::Status::ok: break;
    case WholeFile::Status::notFound: throw CommandFailure(path.string() + " does not exist");
    case WholeFile::Status::tooLarge:
      throw CommandFailure(path.string() + " is too large for a certificate file");
    case WholeFile::Status::failed:
      throw CommandFailure(path.string() + " can't be read: " + std::strerror(file.error));
  }
  if (file.contents.text().find("-----BEGIN CERTIFICATE-----") == std::string_view::npos)
    throw CommandFailure(path.string() + " holds no PEM certificate (-----BEGIN CERTIFICATE-----)");
  return path;
}

RelayClient clientFor(const RelaySetting& setting) {
  return RelayClient(RelayEndpoint{setting.baseURL, setting.caFile, {}});
}

void setRelay() {
  SupportState support = SupportState::open();
  if (options.clear) {
    if (!options.url.empty() || !options.caFile.empty())
      throw CommandFailure("give a relay URL or --clear, not both");
    confirmChange("Stop using a relay? Requests are then approved on this computer only.",
                  options.yes, "clear the relay");
    saveRelaySetting(support, std::nullopt);
    std::cout << "No relay is set; requests are approved on this computer.\n";
    return;
  }
  if (options.url.empty())
    throw CommandFailure(
        "name the relay's URL, for example: quorvane remote relay https://relay.example.com/");
  std::string problem;
  std::optional<std::string> url = checkedRelayBaseURL(options.url, problem);
  if (!url) throw CommandFailure(problem);
  RelaySetting setting{*url, std::nullopt};
  if (!options.caFile.empty()) setting.caFile = checkedCAFile(options.caFile);
  confirmChange("Send remote approval messages through " + *url + "?", options.yes,
                "change the relay");
  saveRelaySetting(support, setting);
  std::cout << "Remote approval uses the relay at " << *url;
  if (setting.caFile)
    std::cout << ", trusting the certificate authorities in " << setting.caFile->string();
  std::cout << ".\n";
  RelayHealth health = relayHealthOf(clientFor(setting));
  DiagnosticCheck check = checkRelay(health, SystemClock().now());
  if (health.kind == RelayHealth::Kind::offline)
    std::cout << "It does not answer now (" << health.problem
              << "); the setting is kept. Check it with quorvane remote status.\n";
  else if (check.level != DiagnosticCheck::Level::ok)
    std::cout << check.detail << "\n";
  else
    std::cout << "It answers.\n";
}

void status() {
  SupportState support = SupportState::open();
  const bool paused = remoteApprovalPaused(*support.keychain);
  std::optional<RelaySetting> setting;
  RelayHealth health;
  try {
    setting = loadRelaySetting(support);
    if (setting) health = relayHealthOf(clientFor(*setting));
  } catch (const std::exception& failure) {
    health = {RelayHealth::Kind::offline, std::nullopt,
              std::string("the relay setting can't be read: ") + failure.what()};
  }
  const DiagnosticCheck check = checkRelay(health, SystemClock().now());

  if (options.json) {
    JSON relay = nullptr;
    if (setting)
      relay = {{"url", setting->baseURL},
               {"caFile", setting->caFile ? JSON(setting->caFile->string()) : JSON(nullptr)}};
    JSON healthJSON = {{"level", rawValue(check.level)}, {"detail", check.detail}};
    if (!health.problem.empty()) healthJSON["problem"] = health.problem;
    if (health.dateHeader) healthJSON["date"] = *health.dateHeader;
    return printJSON({{"paused", paused}, {"relay", relay}, {"health", healthJSON}});
  }
  std::cout << "Remote approval: "
            << (paused ? "paused (quorvane remote resume turns it on again)" : "on") << "\n";
  if (!setting) {
    std::cout << "Relay:           none (set one with quorvane remote relay URL)\n";
  } else {
    std::cout << "Relay:           " << setting->baseURL << "\n";
    if (setting->caFile) std::cout << "CA file:         " << setting->caFile->string() << "\n";
  }
  std::cout << "Health:          " << rawValue(check.level) << ": " << check.detail;
  if (!health.problem.empty()) std::cout << " (" << health.problem << ")";
  std::cout << "\n";
}

}  // namespace

void addRelayCommands(CLI::App& remote) {
  CLI::App* relay =
      remote.add_subcommand("relay", "set the relay that carries requests to your paired devices");
  relay->footer(
      "The URL is https (plain http only for a relay on this machine: localhost, 127.0.0.1 or "
      "[::1]). For a relay whose certificate comes from your own certificate authority, name "
      "that authority's PEM file with --ca-file. The setting is sealed in relay.json in the "
      "support folder; quorvane remote status and quorvane doctor ask the relay's health.");
  relay->add_option("url", options.url,
                    "the relay's base URL, for example https://relay.example.com/");
  relay->add_option("--ca-file", options.caFile,
                    "a PEM file of the certificate authorities to trust for this relay, instead "
                    "of the system's");
  relay->add_flag("--clear", options.clear, "use no relay: approve on this computer only");
  relay->add_flag("--yes", options.yes, "do not ask to confirm");
  relay->callback(setRelay);

  CLI::App* statusCommand = remote.add_subcommand(
      "status", "show whether remote approval is on, the relay, and whether the relay answers");
  addJSONFlag(statusCommand, options.json);
  statusCommand->callback(status);
}

}  // namespace quorvane::cli
