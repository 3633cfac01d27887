#include "agent/FrameIO.h"

#include "Platform/SocketIO.h"
#include "SSHWire/Framing.h"
#include "SSHWire/WireError.h"

namespace quorvane {

std::optional<Bytes> readFrame(int fd) {
  uint8_t prefix[4];
  if (!readExactly(fd, prefix, sizeof prefix)) return std::nullopt;
  uint32_t length = 0;
  try {
    length = Framing::readLength(ByteView(prefix, sizeof prefix));
  } catch (const WireError&) {
    return std::nullopt;
  }
  Bytes body(length);
  if (!readExactly(fd, body.data(), body.size())) return std::nullopt;
  return body;
}

}  // namespace quorvane
