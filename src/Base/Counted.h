#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorvane {

// A count with its noun in the right number: "1 entry", "2 entries", "0 entries".
inline std::string counted(int64_t count, std::string_view one, std::string_view many) {
  return std::to_string(count) + " " + std::string(count == 1 ? one : many);
}

}  // namespace quorvane
