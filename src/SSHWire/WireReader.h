#pragma once

#include <cstdint>
#include <string>

#include "Base/Bytes.h"

namespace quorvane {

// The size limit of the wire layer: every length-prefixed string a decoder reads and every framed
// message body. A length equal to the limit is accepted; one more is lengthTooLarge.
inline constexpr uint32_t kWireLengthLimit = 262144;

// A cursor over SSH binary data (RFC 4251 section 5): big-endian integers and length-prefixed
// strings. Every read goes through one bounds check and throws WireError: `truncated` when too
// few bytes remain, `lengthTooLarge` for a string longer than kWireLengthLimit (checked before
// anything is copied), `invalid("utf8")` for text that is not UTF-8.
//
// The reader does not own its bytes: the buffer must outlive the reader and every view it hands
// out. After a WireError the reader's position is meaningless; decoders abandon it.
class WireReader {
 public:
  explicit WireReader(ByteView bytes) : bytes_(bytes) {}

  uint8_t readByte();
  uint32_t readUInt32();
  // Two uint32 reads: high half first.
  uint64_t readUInt64();
  // One byte; any non-zero value is true.
  bool readBool();
  // A copy of the next `count` bytes.
  Bytes readBytes(size_t count);
  // The SSH `string` type as raw bytes (a copy).
  Bytes readString();
  // As readString, but a view into the reader's buffer; no copy is made.
  ByteView readStringView();
  // As readString, but a reader over the string's bytes, so a nested decoder cannot run past it.
  WireReader readStringReader();
  // The SSH `string` type holding UTF-8 text.
  std::string readUTF8String();
  // A copy of everything left (possibly nothing); never fails.
  Bytes readRest();

  size_t offset() const { return offset_; }
  size_t remaining() const { return bytes_.size() - offset_; }
  bool isAtEnd() const { return offset_ == bytes_.size(); }
  // Ends a complete structure: throws trailingBytes(remaining) unless everything was read.
  void expectEnd() const;

 private:
  ByteView take(size_t count);

  ByteView bytes_;
  size_t offset_ = 0;
};

}  // namespace quorvane
