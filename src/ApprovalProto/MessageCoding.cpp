#include "ApprovalProto/MessageCoding.h"

#include "Base/Check.h"

namespace quorvane::qapcoding {

bool readFlag(WireReader& reader) {
  const uint8_t value = reader.readByte();
  if (value > 1) throw QAPFailure(QAPFailure::Kind::malformed);
  return value == 1;
}

uint32_t readCount(WireReader& reader, size_t minimumElementSize) {
  const uint32_t count = reader.readUInt32();
  if (count > reader.remaining() / minimumElementSize)
    throw QAPFailure(QAPFailure::Kind::malformed);
  return count;
}

std::vector<std::string> readStrings(WireReader& reader) {
  const uint32_t count = readCount(reader, 4);  // a string is at least its length word
  std::vector<std::string> strings;
  strings.reserve(count);
  for (uint32_t i = 0; i < count; ++i) strings.push_back(reader.readUTF8String());
  return strings;
}

void writeCount(WireWriter& writer, size_t count) {
  QUORVANE_CHECK(count <= UINT32_MAX, "a list of more than 2^32 - 1 elements cannot be encoded");
  writer.writeUInt32(static_cast<uint32_t>(count));
}

void writeStrings(WireWriter& writer, const std::vector<std::string>& strings) {
  writeCount(writer, strings.size());
  for (const std::string& each : strings) writer.writeString(each);
}

}  // namespace quorvane::qapcoding
