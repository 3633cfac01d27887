#pragma once

#include <optional>

#include "Base/Bytes.h"

namespace quorvane {

// Reads one framed agent message body from a blocking stream socket: a uint32 length and that
// many bytes. Nothing when the peer closed the connection, a read failed, or the length is 0 or
// above the wire limit: in every such case the caller closes the connection without an answer.
std::optional<Bytes> readFrame(int fd);

}  // namespace quorvane
