#pragma once

#include <cstdint>

#include "Base/Bytes.h"

namespace quorvane {

// The length framing of agent messages: uint32 body length, then the body.
struct Framing {
  Framing() = delete;

  // uint32 length of `body`, then `body`.
  static Bytes frame(ByteView body);

  // The body length from a 4-byte prefix. Throws WireError: `truncated` unless the prefix is
  // exactly 4 bytes, invalid("empty message") for 0, lengthTooLarge(value) above kWireLengthLimit.
  static uint32_t readLength(ByteView prefix);
};

}  // namespace quorvane
