#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorvane::cli {

// `text` as a QR code drawn with half-block characters (two rows of modules per line), black on
// white with a quiet zone, for a terminal; nothing when the text does not fit in a QR code.
std::optional<std::string> terminalQRCode(std::string_view text);

}  // namespace quorvane::cli
