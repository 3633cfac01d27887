#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Base/JSONReader.h"
#include "PromptModel/PromptRequest.h"

namespace quorvane {

// What the person can answer in the dialog.
enum class PromptChoiceKind { allowOnce, allowWindow, deny, denyAndBlock };

struct PromptChoice {
  PromptChoiceKind kind = PromptChoiceKind::deny;
  std::optional<double> windowSeconds;  // for allowWindow: one of the approval windows

  static PromptChoice allowOnce() { return {PromptChoiceKind::allowOnce, std::nullopt}; }
  static PromptChoice allowWindow(double seconds) {
    return {PromptChoiceKind::allowWindow, seconds};
  }
  static PromptChoice deny() { return {PromptChoiceKind::deny, std::nullopt}; }
  static PromptChoice denyAndBlock() { return {PromptChoiceKind::denyAndBlock, std::nullopt}; }
  friend bool operator==(const PromptChoice&, const PromptChoice&) = default;
};

// A button of the dialog, in the order shown.
struct PromptButton {
  PromptChoiceKind kind;
  std::string label;
  friend bool operator==(const PromptButton&, const PromptButton&) = default;
};

// The buttons for `request`: Allow once, Allow for (only when the request allows a window), Deny,
// Deny and block. None of them is the default: Enter alone never answers.
std::vector<PromptButton> promptButtons(const PromptRequest& request);

// One approval window the dialog offers, and its words.
struct PromptWindow {
  double seconds;
  std::string label;
};
// The windows an approval may cover, shortest first; the dialog preselects kDefaultWindowIndex.
const std::vector<PromptWindow>& promptWindows();
inline constexpr size_t kDefaultWindowIndex = 1;  // 15 minutes

// The choice that Escape (or closing the window) makes: deny, without a block.
inline constexpr PromptChoiceKind kEscapeChoice = PromptChoiceKind::deny;

// How the dialog names itself in answers; the activity log records "you, with quorvane-prompt".
inline constexpr std::string_view kPromptFrontendName = "quorvane-prompt";

// The control message answering `request` with `choice`. Nothing when the choice is not offered
// for this request (a window where none is allowed, or a length that is not an approval window).
std::optional<JSON> answerMessage(const PromptRequest& request, const PromptChoice& choice);

}  // namespace quorvane
