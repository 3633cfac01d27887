#pragma once

#include <optional>

#include "Base/Bytes.h"

namespace quorvane {

// The client's side in the agent tests: reads one framed message body (an answer) from a blocking
// stream socket, a uint32 length and that many bytes. Nothing when the peer closed the connection,
// a read failed, or the length is 0 or above the wire limit.
std::optional<Bytes> readFrame(int fd);

}  // namespace quorvane
