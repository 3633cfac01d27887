#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "AgentState/SupportState.h"
#include "Policy/Rule.h"

namespace quorvane {

// The rules file "rules.json" (sealed, purpose "rules") as the application sees it.
struct RulesFile {
  enum class State { ok, none, tampered, unreadable };
  State state = State::none;
  std::vector<Rule> rules;  // empty unless ok
  std::string problem;      // for unreadable: what went wrong

  static constexpr std::string_view kPurpose = "rules";
  static RulesFile read(const SupportState& support);
  static void save(const SupportState& support, const std::vector<Rule>& rules);
};

}  // namespace quorvane
