#include "SSHWire/WireReader.h"

#include "Base/UTF8.h"
#include "SSHWire/WireError.h"

namespace quorvane {

ByteView WireReader::take(size_t count) {
  if (count > remaining()) throw WireError::truncated();
  ByteView taken = bytes_.subspan(offset_, count);
  offset_ += count;
  return taken;
}

uint8_t WireReader::readByte() { return take(1)[0]; }

uint32_t WireReader::readUInt32() {
  ByteView b = take(4);
  return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | uint32_t{b[3]};
}

uint64_t WireReader::readUInt64() {
  uint64_t high = readUInt32();
  return high << 32 | readUInt32();
}

bool WireReader::readBool() { return readByte() != 0; }

Bytes WireReader::readBytes(size_t count) {
  ByteView taken = take(count);
  return Bytes(taken.begin(), taken.end());
}

ByteView WireReader::readStringView() {
  uint32_t length = readUInt32();
  if (length > kWireLengthLimit) throw WireError::lengthTooLarge(length);
  return take(length);
}

Bytes WireReader::readString() {
  ByteView view = readStringView();
  return Bytes(view.begin(), view.end());
}

WireReader WireReader::readStringReader() { return WireReader(readStringView()); }

std::string WireReader::readUTF8String() {
  ByteView view = readStringView();
  if (!isValidUTF8(view)) throw WireError::invalid("utf8");
  return textOf(view);
}

Bytes WireReader::readRest() { return readBytes(remaining()); }

void WireReader::expectEnd() const {
  if (!isAtEnd()) throw WireError::trailingBytes(remaining());
}

}  // namespace quorvane
