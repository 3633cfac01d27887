#pragma once

#include <limits>
#include <string>

#include "Base/JSONReader.h"

namespace quorvane {

// A JSON integer that must fit `Integer`; dataCorrupted when it does not.
template <typename Integer>
Integer decodeInteger(const JSONReader& reader) {
  int64_t value = reader.int64();
  if (value < static_cast<int64_t>(std::numeric_limits<Integer>::min()) ||
      value > static_cast<int64_t>(std::numeric_limits<Integer>::max()))
    reader.fail("The number does not fit in " + std::to_string(sizeof(Integer) * 8) + " bits.");
  return static_cast<Integer>(value);
}

}  // namespace quorvane
