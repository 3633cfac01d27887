#pragma once

// Pieces shared by the binary codecs of the approval messages; for use inside ApprovalProto.
// Every message starts with a uint32 version, then fields in the SSH wire encoding; a decoder
// reads the whole buffer and nothing is optional.

#include <cstdint>
#include <string>
#include <vector>

#include "ApprovalProto/QAPFailure.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane::qapcoding {

// The version word this side writes and accepts.
inline constexpr uint32_t kMessageVersion = 2;

// Runs `decodeFields` on the bytes after the version word and requires the buffer to end there.
// A version other than kMessageVersion is unsupportedVersion (checked first); any WireError
// (short buffer, string over the limit, text that is not UTF-8, trailing bytes) is malformed.
template <typename DecodeFields>
auto decodeMessage(ByteView bytes, DecodeFields decodeFields) {
  try {
    WireReader reader(bytes);
    if (reader.readUInt32() != kMessageVersion)
      throw QAPFailure(QAPFailure::Kind::unsupportedVersion);
    auto message = decodeFields(reader);
    reader.expectEnd();
    return message;
  } catch (const WireError&) {
    throw QAPFailure(QAPFailure::Kind::malformed);
  }
}

// A byte that must be 0 or 1.
bool readFlag(WireReader& reader);

// An enumeration byte whose valid values are 0...largest; malformed otherwise.
template <typename Enum>
Enum readEnumeration(WireReader& reader, Enum largest) {
  const uint8_t value = reader.readByte();
  if (value > static_cast<uint8_t>(largest)) throw QAPFailure(QAPFailure::Kind::malformed);
  return static_cast<Enum>(value);
}

// A uint32 element count, refused (malformed) when even the smallest elements of
// `minimumElementSize` bytes could not fit in what is left, so nothing is allocated for it.
uint32_t readCount(WireReader& reader, size_t minimumElementSize);

// A count, then that many UTF-8 strings.
std::vector<std::string> readStrings(WireReader& reader);
void writeStrings(WireWriter& writer, const std::vector<std::string>& strings);

// REQUIRES: the count fits in 32 bits.
void writeCount(WireWriter& writer, size_t count);

}  // namespace quorvane::qapcoding
