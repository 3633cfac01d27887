#include "Policy/WindowChoice.h"

namespace quorvane {

const std::array<WindowChoice, 6>& WindowChoice::allCases() {
  static constexpr std::array<WindowChoice, 6> kAllCases = {
      WindowChoice(300),  WindowChoice(900),   WindowChoice(1800),
      WindowChoice(3600), WindowChoice(43200), WindowChoice(86400)};
  return kAllCases;
}

std::optional<WindowChoice> WindowChoice::fromSeconds(double seconds) {
  for (WindowChoice choice : allCases())
    if (choice.seconds() == seconds) return choice;
  return std::nullopt;
}

WindowChoice WindowChoice::maximum() { return allCases().back(); }

}  // namespace quorvane
