#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/Bytes.h"

namespace quorvane {

enum class Base64Padding { padded, unpadded };

// Standard base64 (RFC 4648 section 4, alphabet A-Z a-z 0-9 + /).
std::string base64Encode(ByteView bytes, Base64Padding padding = Base64Padding::padded);

// Decodes standard base64 with or without "=" padding. Strict: nothing for characters outside the
// alphabet (whitespace included), misplaced or partial padding, an impossible length, or unused
// low bits that are not zero (so every byte string has exactly one accepted encoding per padding).
std::optional<Bytes> base64Decode(std::string_view text);

}  // namespace quorvane
