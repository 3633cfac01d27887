#include "Diagnostics/DiagnosticCheck.h"

#include "Base/EnumNames.h"

namespace quorvane {
namespace {

using Level = DiagnosticCheck::Level;

constexpr EnumNames<Level, 3> kLevelNames{
    "Level", {{{Level::ok, "ok"}, {Level::warning, "warning"}, {Level::problem, "problem"}}}};

}  // namespace

std::string_view rawValue(DiagnosticCheck::Level level) { return kLevelNames.name(level); }

JSON toJSON(const DiagnosticCheck& check) {
  return {{"id", check.id.uuidString()},
          {"title", check.title},
          {"level", rawValue(check.level)},
          {"detail", check.detail}};
}

}  // namespace quorvane
