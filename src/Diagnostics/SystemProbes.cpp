#include "Diagnostics/SystemProbes.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "AgentState/PresenceSetting.h"
#include "AgentState/RelaySetting.h"
#include "AgentState/SupportState.h"
#include "ControlProtocol/ControlClient.h"
#include "Diagnostics/AgentUnit.h"
#include "Diagnostics/ProbeParsing.h"
#include "KeyStore/KeychainSecretStore.h"
#include "Platform/Clock.h"
#include "Platform/FileDescriptor.h"
#include "Platform/PAMPresenceVerifier.h"
#include "Platform/Paths.h"
#include "Platform/WholeFile.h"
#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayError.h"
#include "RelayClient/RelayTexts.h"
#include "SSHWire/Framing.h"
#include "SSHWire/WireError.h"

namespace quorvane {
namespace {

// Texts read by the checks (~/.ssh/config, unit files) are small; more is not read.
constexpr size_t kTextLimit = 4 << 20;
// How long the agent may take to answer a request for identities.
constexpr time_t kAgentTimeoutSeconds = 5;

bool transfer(int fd, uint8_t* bytes, size_t count, bool send) {
  size_t done = 0;
  while (done < count) {
    ssize_t moved = send ? ::send(fd, bytes + done, count - done, MSG_NOSIGNAL)
                         : ::recv(fd, bytes + done, count - done, 0);
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) return false;
    done += static_cast<size_t>(moved);
  }
  return true;
}

}  // namespace

const ProgramResult& SystemProbes::showEnvironment() {
  if (!showEnvironment_) showEnvironment_ = systemctlUser({"show-environment"});
  return *showEnvironment_;
}

AgentUnitState SystemProbes::agentUnitState() {
  if (showEnvironment().exitCode != 0) return AgentUnitState::noUserManager;
  ProgramResult result = systemctlUser({"is-enabled", std::string(kAgentUnitName)});
  std::string state = result.output.substr(0, result.output.find('\n'));
  for (const char* enabled : {"enabled", "enabled-runtime", "linked", "linked-runtime", "alias",
                              "static", "indirect", "generated", "transient"})
    if (state == enabled) return AgentUnitState::enabled;
  for (const char* disabled : {"disabled", "masked", "masked-runtime"})
    if (state == disabled) return AgentUnitState::disabled;
  return AgentUnitState::notInstalled;
}

AgentAnswer SystemProbes::askAgentForIdentities(const std::filesystem::path& socket) {
  AgentAnswer noConnection;
  const std::string path = socket.string();
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) return noConnection;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  FileDescriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!connection ||
      ::connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return noConnection;
  timeval timeout{kAgentTimeoutSeconds, 0};
  ::setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  ::setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);

  uint8_t request[] = {0, 0, 0, 1, 11};  // request identities, framed
  uint8_t prefix[4];
  AgentAnswer unexpected{AgentAnswer::Kind::unexpected, 0};
  if (!transfer(connection.get(), request, sizeof request, true) ||
      !transfer(connection.get(), prefix, sizeof prefix, false))
    return unexpected;
  try {
    Bytes body(Framing::readLength(ByteView(prefix, sizeof prefix)));
    if (!transfer(connection.get(), body.data(), body.size(), false)) return unexpected;
    if (auto count = identitiesAnswerCount(body)) return {AgentAnswer::Kind::identities, *count};
  } catch (const WireError&) {
  }
  return unexpected;
}

bool SystemProbes::exists(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

std::optional<std::string> SystemProbes::readText(const std::filesystem::path& path) {
  WholeFile file = readWholeFile(path, kTextLimit);
  if (file.status != WholeFile::Status::ok) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(file.contents.data()), file.contents.size());
}

ManagerEnvironment SystemProbes::managerSSHAuthSock() {
  const ProgramResult& result = showEnvironment();
  if (result.exitCode != 0) return {};
  return {true, environmentValue(result.output, "SSH_AUTH_SOCK")};
}

bool SystemProbes::agentSetsManagerEnvironment() {
  try {
    std::optional<std::string> unit = readText(agentUnitPath());
    return unit && unitSetsManagerEnvironment(*unit);
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<std::string> SystemProbes::identityAgentFor(const std::filesystem::path& config,
                                                          const std::string& host) {
  // -F: the configuration under HOME, which is the one the checks read (ssh itself would take
  // the password database's home folder).
  ProgramResult result = runProgram({"ssh", "-F", config.string(), "-G", "--", host});
  if (result.exitCode != 0) return std::nullopt;
  return identityAgentLine(result.output);
}

std::optional<std::string> SystemProbes::environment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

KeyAvailability SystemProbes::keys() {
  KeyAvailability availability;
  try {
    // Without a key list there is nothing to look up, and opening the keychain would create it.
    std::error_code error;
    if (!std::filesystem::exists(KeyStore::defaultRecordsPath(), error)) return availability;
    SupportState support = SupportState::open();
    KeychainSecretStore secrets(support.keychain);
    for (const KeyRecord& record : support.openKeyStore()->records()) {
      bool readable = false;
      try {
        readable = secrets.read(record.id).has_value();
      } catch (const std::exception&) {
      }
      availability.keys.push_back({record.name, readable});
    }
  } catch (const std::exception& error) {
    availability.failure = error.what();
    availability.keys.clear();
  }
  return availability;
}

bool SystemProbes::presenceVerificationOn() {
  // Without a saved setting it is on, and opening the support state would create its folders.
  std::error_code error;
  if (!std::filesystem::exists(supportFolder() / kPresenceSettingFile, error)) return true;
  try {
    return presenceVerificationEnabled(SupportState::open());
  } catch (const std::exception&) {
    return true;  // a setting that cannot be read counts as on, as the agent reads it
  }
}

AccountPassword SystemProbes::accountPassword() {
  const auto user = PAMPresenceVerifier::currentUserName();
  return user ? quorvane::accountPassword(*user) : AccountPassword::unknown;
}

std::vector<std::string> SystemProbes::activeBlocks(const std::filesystem::path& controlSocket) {
  std::vector<std::string> texts;
  try {
    auto client = ControlClient::connect(controlSocket);
    if (!client) return texts;
    JSON answer = client->request({{"message", "blocks"}});
    for (const JSON& block : answer.value("blocks", JSON::array()))
      texts.push_back(block.value("text", ""));
  } catch (const std::exception&) {
    // An agent that hangs up or answers nonsense has no blocks to report; "Agent answers" tells.
  }
  return texts;
}

RelayHealth SystemProbes::relayHealth() {
  // Without a saved setting there is no relay, and opening the support state would create its
  // folders.
  std::error_code error;
  if (!std::filesystem::exists(supportFolder() / kRelaySettingFile, error))
    return {RelayHealth::Kind::notConfigured, std::nullopt, ""};
  std::optional<RelaySetting> setting;
  try {
    setting = loadRelaySetting(SupportState::open());
  } catch (const std::exception& failure) {
    return {RelayHealth::Kind::offline, std::nullopt,
            std::string("the relay setting can't be read: ") + failure.what()};
  }
  if (!setting) return {RelayHealth::Kind::notConfigured, std::nullopt, ""};
  return relayHealthOf(RelayClient(RelayEndpoint{setting->baseURL, setting->caFile, {}}));
}

RelayHealth relayHealthOf(const RelayClient& client) {
  try {
    RelayHealthAnswer answer = client.health();
    if (answer.status != 200)
      return {RelayHealth::Kind::offline, std::nullopt,
              relayFailureText(RelayError::http(answer.status))};
    return {RelayHealth::Kind::answered, std::move(answer.date), ""};
  } catch (const RelayError& failure) {
    return {RelayHealth::Kind::offline, std::nullopt, relayFailureText(failure)};
  }
}

Date SystemProbes::now() { return SystemClock().now(); }

}  // namespace quorvane
