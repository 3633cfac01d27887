#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/Bytes.h"

namespace quorvane {

// Lower-case hexadecimal, two digits a byte.
std::string hexEncode(ByteView bytes);

// Decodes hexadecimal of either case; nothing for an odd length or a character that is not a digit.
std::optional<Bytes> hexDecode(std::string_view text);

}  // namespace quorvane
