#include "Diagnostics/DiagnosticCheck.h"

namespace quorvane {

std::string_view rawValue(DiagnosticCheck::Level level) {
  switch (level) {
    case DiagnosticCheck::Level::ok: return "ok";
    case DiagnosticCheck::Level::warning: return "warning";
    case DiagnosticCheck::Level::problem: return "problem";
  }
  return "problem";
}

JSON toJSON(const DiagnosticCheck& check) {
  return {{"id", check.id.uuidString()},
          {"title", check.title},
          {"level", rawValue(check.level)},
          {"detail", check.detail}};
}

}  // namespace quorvane
