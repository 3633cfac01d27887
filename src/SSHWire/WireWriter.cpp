#include "SSHWire/WireWriter.h"

#include <limits>

#include "Base/Check.h"

namespace quorvane {

void WireWriter::writeByte(uint8_t value) { data_.push_back(value); }

void WireWriter::writeUInt32(uint32_t value) {
  data_.push_back(static_cast<uint8_t>(value >> 24));
  data_.push_back(static_cast<uint8_t>(value >> 16));
  data_.push_back(static_cast<uint8_t>(value >> 8));
  data_.push_back(static_cast<uint8_t>(value));
}

void WireWriter::writeUInt64(uint64_t value) {
  writeUInt32(static_cast<uint32_t>(value >> 32));
  writeUInt32(static_cast<uint32_t>(value));
}

void WireWriter::writeString(ByteView bytes) {
  QUORVANE_CHECK(bytes.size() <= std::numeric_limits<uint32_t>::max(),
                 "an SSH string's length must fit in 32 bits");
  writeUInt32(static_cast<uint32_t>(bytes.size()));
  writeRaw(bytes);
}

void WireWriter::writeString(std::string_view text) {
  writeString(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void WireWriter::writeMpint(ByteView bigEndian) { writeString(mpint(bigEndian)); }

void WireWriter::writeRaw(ByteView bytes) { data_.insert(data_.end(), bytes.begin(), bytes.end()); }

Bytes mpint(ByteView bigEndian) {
  size_t start = 0;
  while (start < bigEndian.size() && bigEndian[start] == 0) ++start;
  Bytes body;
  if (start < bigEndian.size() && bigEndian[start] >= 0x80) body.push_back(0);
  body.insert(body.end(), bigEndian.begin() + static_cast<ptrdiff_t>(start), bigEndian.end());
  return body;
}

}  // namespace quorvane
