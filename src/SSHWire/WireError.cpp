#include "SSHWire/WireError.h"

#include <utility>

namespace quorvane {

namespace {

std::string describe(WireError::Kind kind, const WireErrorPayload& payload) {
  switch (kind) {
    case WireError::Kind::lengthTooLarge:
      return "length too large: " + std::to_string(payload.amount);
    case WireError::Kind::trailingBytes: return std::to_string(payload.amount) + " trailing bytes";
    case WireError::Kind::invalid: return "invalid: " + payload.reason;
    case WireError::Kind::truncated: return "truncated";
  }
  return "wire error";
}

}  // namespace

WireError::WireError(Kind kind, WireErrorPayload payload)
    : KindedError(kind, payload, describe(kind, payload)) {}

WireError WireError::lengthTooLarge(uint64_t length) {
  return WireError(Kind::lengthTooLarge, {length, ""});
}

WireError WireError::trailingBytes(uint64_t count) {
  return WireError(Kind::trailingBytes, {count, ""});
}

WireError WireError::invalid(std::string reason) {
  return WireError(Kind::invalid, {0, std::move(reason)});
}

WireError WireError::truncated() { return WireError(Kind::truncated, {}); }

}  // namespace quorvane
