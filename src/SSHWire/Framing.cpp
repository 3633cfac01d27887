#include "SSHWire/Framing.h"

#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {

Bytes Framing::frame(ByteView body) {
  WireWriter writer;
  writer.writeString(body);
  return std::move(writer).take();
}

uint32_t Framing::readLength(ByteView prefix) {
  if (prefix.size() != 4) throw WireError::truncated();
  uint32_t length = WireReader(prefix).readUInt32();
  if (length == 0) throw WireError::invalid("empty message");
  if (length > kWireLengthLimit) throw WireError::lengthTooLarge(length);
  return length;
}

}  // namespace quorvane
