#pragma once

#include <string_view>

#include "Base/Bytes.h"

namespace quorvane {

// Whether `bytes` are well-formed UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing
// above U+10FFFF, no truncated sequence.
bool isValidUTF8(ByteView bytes);
inline bool isValidUTF8(std::string_view text) {
  return isValidUTF8(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

}  // namespace quorvane
