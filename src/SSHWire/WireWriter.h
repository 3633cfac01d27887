#pragma once

#include <cstdint>
#include <string_view>

#include "Base/Bytes.h"

namespace quorvane {

// Builds SSH binary data; every write appends. The mirror of WireReader.
class WireWriter {
 public:
  void writeByte(uint8_t value);
  void writeUInt32(uint32_t value);
  void writeUInt64(uint64_t value);
  // uint32 length, then the bytes. REQUIRES: bytes.size() fits in 32 bits (stops otherwise).
  void writeString(ByteView bytes);
  // The text's UTF-8 bytes as writeString(bytes).
  void writeString(std::string_view text);
  // An SSH mpint: the non-negative big-endian number normalised (see mpint()) as a string.
  void writeMpint(ByteView bigEndian);
  // The bytes with no prefix.
  void writeRaw(ByteView bytes);

  const Bytes& data() const { return data_; }
  Bytes take() && { return std::move(data_); }

 private:
  Bytes data_;
};

// RFC 4251 mpint body of a non-negative big-endian number: leading zero bytes dropped, then one
// zero byte put back when the first byte has its high bit set. Empty stays empty (zero).
Bytes mpint(ByteView bigEndian);

}  // namespace quorvane
