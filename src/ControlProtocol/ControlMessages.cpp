#include "ControlProtocol/ControlMessages.h"

namespace quorvane {

JSON promptLine(const PresencePrompt& prompt) {
  return {{"prompt", {{"style", std::string(rawValue(prompt.style))}, {"text", prompt.text}}}};
}

std::optional<PresencePrompt> promptOf(const JSON& line) {
  auto found = line.find("prompt");
  if (found == line.end() || !found->is_object()) return std::nullopt;
  auto style = found->find("style");
  auto text = found->find("text");
  if (style == found->end() || !style->is_string() || text == found->end() || !text->is_string())
    return std::nullopt;
  auto parsed = presencePromptStyle(style->get<std::string>());
  if (!parsed) return std::nullopt;
  return PresencePrompt{*parsed, text->get<std::string>()};
}

}  // namespace quorvane
