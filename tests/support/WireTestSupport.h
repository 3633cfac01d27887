#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "SSHWire/WireError.h"

namespace quorvane::testing {

// Runs `decode` and returns the WireError it throws; fails the calling test if it throws none.
inline WireError wireErrorOf(const std::function<void()>& decode) {
  try {
    decode();
  } catch (const WireError& error) {
    return error;
  }
  ADD_FAILURE() << "no WireError thrown";
  return WireError::invalid("<none thrown>");
}

}  // namespace quorvane::testing
