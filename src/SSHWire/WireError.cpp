#include "SSHWire/WireError.h"

#include <utility>

namespace quorvane {

namespace {

std::string describe(WireError::Kind kind, uint64_t amount, const std::string& reason) {
  switch (kind) {
    case WireError::Kind::lengthTooLarge: return "length too large: " + std::to_string(amount);
    case WireError::Kind::trailingBytes: return std::to_string(amount) + " trailing bytes";
    case WireError::Kind::invalid: return "invalid: " + reason;
    case WireError::Kind::truncated: return "truncated";
  }
  return "wire error";
}

}  // namespace

WireError::WireError(Kind kind, uint64_t amount, std::string reason)
    : std::runtime_error(describe(kind, amount, reason)),
      kind_(kind),
      amount_(amount),
      reason_(std::move(reason)) {}

WireError WireError::lengthTooLarge(uint64_t length) {
  return WireError(Kind::lengthTooLarge, length, "");
}

WireError WireError::trailingBytes(uint64_t count) {
  return WireError(Kind::trailingBytes, count, "");
}

WireError WireError::invalid(std::string reason) {
  return WireError(Kind::invalid, 0, std::move(reason));
}

WireError WireError::truncated() { return WireError(Kind::truncated, 0, ""); }

}  // namespace quorvane
