#include "PromptModel/PromptChoice.h"

#include "Policy/WindowChoice.h"

namespace quorvane {

std::vector<PromptButton> promptButtons(const PromptRequest& request) {
  std::vector<PromptButton> buttons{{PromptChoiceKind::allowOnce, "Allow once"}};
  if (request.windowAllowed) buttons.push_back({PromptChoiceKind::allowWindow, "Allow for"});
  buttons.push_back({PromptChoiceKind::deny, "Deny"});
  buttons.push_back({PromptChoiceKind::denyAndBlock, "Deny and block"});
  return buttons;
}

const std::vector<PromptWindow>& promptWindows() {
  static const std::vector<PromptWindow> windows{{300, "5 minutes"},   {900, "15 minutes"},
                                                 {1800, "30 minutes"}, {3600, "1 hour"},
                                                 {43200, "12 hours"},  {86400, "24 hours"}};
  return windows;
}

std::optional<JSON> answerMessage(const PromptRequest& request, const PromptChoice& choice) {
  JSON message = {{"message", "answer"},
                  {"id", request.id},
                  {"approve", true},
                  {"frontend", std::string(kPromptFrontendName)}};
  switch (choice.kind) {
    case PromptChoiceKind::allowOnce: break;
    case PromptChoiceKind::allowWindow:
      if (!request.windowAllowed || !choice.windowSeconds ||
          !WindowChoice::fromSeconds(*choice.windowSeconds))
        return std::nullopt;
      message["windowSeconds"] = *choice.windowSeconds;
      break;
    case PromptChoiceKind::deny: message["approve"] = false; break;
    case PromptChoiceKind::denyAndBlock:
      message["approve"] = false;
      message["block"] = true;
      break;
  }
  return message;
}

}  // namespace quorvane
