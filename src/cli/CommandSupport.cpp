#include "cli/CommandSupport.h"

#include <unistd.h>

#include <iostream>

#include "ControlProtocol/ControlClient.h"
#include "ControlProtocol/ControlMessages.h"
#include "SSHWire/SSHPublicKey.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"

namespace quorvane::cli {

void printJSON(const JSON& value) {
  std::cout << value.dump(2, ' ', false, JSON::error_handler_t::replace) << "\n";
}

void notifyAgentOfChange() { postToAgent({{"message", std::string(kReloadMessage)}}); }

JSON askAgent(const JSON& message) {
  auto client = ControlClient::connect();
  if (!client) throw CommandFailure("the agent is not running (start it with quorvane-agent)");
  JSON answer = client->request(message);
  if (!answer.value("ok", false)) throw CommandFailure(answer.value("error", "the agent refused"));
  return answer;
}

JSON askAgentWithPresence(const JSON& message) {
  auto client = ControlClient::connect();
  if (!client) throw CommandFailure("the agent is not running (start it with quorvane-agent)");
  JSON answer = client->exchange(message, answerPresencePrompt);
  if (!answer.value("ok", false)) throw CommandFailure(answer.value("error", "the agent refused"));
  return answer;
}

KeyRecord findKey(const std::vector<KeyRecord>& records, const std::string& name) {
  std::vector<const KeyRecord*> found;
  for (const KeyRecord& record : records)
    if (record.name == name || fingerprint(record.publicKeyBlob) == name ||
        record.id.uuidString() == name)
      found.push_back(&record);
  if (found.empty()) throw CommandFailure("no key named " + name + " (see quorvane keys list)");
  if (found.size() > 1)
    throw CommandFailure("several keys are named " + name + "; use the fingerprint instead");
  return *found.front();
}

void requireFreeName(const std::vector<KeyRecord>& records, const std::string& name,
                     const std::string& wayOut, const UUID* self) {
  for (const KeyRecord& record : records)
    if (record.name == name && (self == nullptr || record.id != *self))
      throw CommandFailure("a key named “" + name + "” already exists; " + wayOut);
}

void confirmChange(const std::string& question, bool yes, const std::string& action,
                   const std::string& declined) {
  if (yes) return;
  if (!::isatty(STDIN_FILENO))
    throw CommandFailure("add --yes to " + action + " without a terminal", 2);
  if (!confirm(question)) throw CommandFailure(declined);
}

void addJSONFlag(CLI::App* command, bool& json) {
  command->add_flag("--json", json, "print JSON for scripts instead of text");
}

}  // namespace quorvane::cli
