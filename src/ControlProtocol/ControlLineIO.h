#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Base/Bytes.h"
#include "Base/JSONReader.h"

namespace quorvane {

// Lines longer than this are refused; the connection is closed.
inline constexpr size_t kMaxControlLineLength = 1 << 20;

// The control socket's lines over Platform/SocketIO.h. Reads one line (without its newline);
// nothing at end of input, on an error, or for a line over kMaxControlLineLength. `buffer` keeps
// bytes read past the line.
std::optional<std::string> readControlLine(int fd, std::string& buffer);
// Writes `message` compactly with a newline; false when the peer is gone.
bool writeControlLine(int fd, const JSON& message);

}  // namespace quorvane
