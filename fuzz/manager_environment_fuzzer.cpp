// The user manager's environment (`systemctl --user show-environment`) as the agent reads it to
// find the graphical session. Nothing may crash or over-read; only session variables come out,
// never empty and never holding a NUL or a newline that was not escaped.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Platform/GraphicalSession.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const std::string_view output(reinterpret_cast<const char*>(data), size);
  for (const auto& [name, value] : parseManagerEnvironment(output)) {
    if (std::ranges::find(kSessionVariables, name) == std::end(kSessionVariables)) std::abort();
    if (value.empty() || value.find('\0') != std::string::npos) std::abort();
  }
  (void)graphicalSession(parseManagerEnvironment(output), {});
  return 0;
}
