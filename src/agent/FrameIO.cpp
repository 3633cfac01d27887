#include "agent/FrameIO.h"

#include <sys/socket.h>

#include <cerrno>

#include "ControlProtocol/ControlLineIO.h"
#include "SSHWire/Framing.h"
#include "SSHWire/WireError.h"

namespace quorvane {
namespace {

bool readExactly(int fd, uint8_t* out, size_t count) {
  while (count > 0) {
    ssize_t got = ::recv(fd, out, count, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    out += got;
    count -= static_cast<size_t>(got);
  }
  return true;
}

}  // namespace

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

bool writeAll(int fd, ByteView bytes) { return writeControlBytes(fd, bytes); }

}  // namespace quorvane
