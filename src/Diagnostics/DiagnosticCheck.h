#pragma once

#include <string>
#include <string_view>

#include "Base/JSONReader.h"
#include "Base/UUID.h"

namespace quorvane {

// One line of the diagnostics list: what was checked, how it went and what to do about it.
struct DiagnosticCheck {
  // In this order: a passing check, something the user may want to fix, something that stops SSH
  // or Git from using the keys.
  enum class Level { ok, warning, problem };

  UUID id;  // the same for the same check in every run; identifies the line in a list
  std::string title;
  Level level = Level::ok;
  std::string detail;

  friend bool operator==(const DiagnosticCheck&, const DiagnosticCheck&) = default;
};

// "ok", "warning", "problem".
std::string_view rawValue(DiagnosticCheck::Level level);

// {"id", "title", "level", "detail"}.
JSON toJSON(const DiagnosticCheck& check);

}  // namespace quorvane
