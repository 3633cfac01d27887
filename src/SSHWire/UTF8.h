#pragma once

#include "Base/Bytes.h"

namespace quorvane {

// Whether `bytes` are well-formed UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing
// above U+10FFFF, no truncated sequence.
bool isValidUTF8(ByteView bytes);

}  // namespace quorvane
