#include "PromptModel/PromptAgentLink.h"

#include "ControlProtocol/ControlError.h"

namespace quorvane {

std::optional<ControlClient> openPromptWatch(const std::filesystem::path& socket) {
  auto agent = ControlClient::connect(socket);
  if (!agent) return std::nullopt;
  try {
    if (!agent->request({{"message", "watch"}}).value("ok", false)) return std::nullopt;
  } catch (const ControlError&) {
    return std::nullopt;
  }
  return agent;
}

AnswerOutcome sendPromptAnswer(const std::filesystem::path& socket, const JSON& message,
                               const PromptHandler& prompts) {
  auto agent = ControlClient::connect(socket);
  if (!agent) return {false, "The agent is not running."};
  try {
    JSON result = agent->exchange(message, prompts);
    if (result.value("ok", false)) return {true, "Answered."};
    const auto error = result.find("error");
    return {false, error != result.end() && error->is_string() ? error->get<std::string>()
                                                               : "The agent refused the answer."};
  } catch (const ControlError&) {
    return {false, "The agent went away before it answered."};
  }
}

}  // namespace quorvane
