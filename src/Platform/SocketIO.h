#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "Base/Bytes.h"

namespace quorvane {

// Blocking reads and writes on a stream socket, shared by the agent's framed messages and the
// control socket's lines. Interrupted calls are retried; a write never raises SIGPIPE.

// Reads exactly `count` bytes into `out`; false when the peer closed first or a read failed.
bool readExactly(int fd, uint8_t* out, size_t count);

// Writes all of `bytes`; false when the peer is gone.
bool writeAll(int fd, ByteView bytes);

// Reads one line (without its newline); nothing at end of input, on an error, or once more than
// `maxLength` bytes have arrived without a newline. `buffer` keeps the bytes read past the line.
std::optional<std::string> readLine(int fd, std::string& buffer, size_t maxLength);

}  // namespace quorvane
