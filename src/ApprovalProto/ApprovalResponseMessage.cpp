#include "ApprovalProto/ApprovalResponseMessage.h"

#include "ApprovalProto/MessageCoding.h"

namespace quorvane {

using namespace qapcoding;

Bytes ApprovalResponseMessage::encode() const {
  WireWriter writer;
  writer.writeUInt32(kMessageVersion);
  writer.writeString(requestID);
  writer.writeString(macID);
  writer.writeString(deviceID);
  writer.writeByte(static_cast<uint8_t>(decision));
  writer.writeByte(static_cast<uint8_t>(scope));
  writer.writeString(dataHash);
  writer.writeUInt64(decidedAt);
  writer.writeByte(fingerprintShown ? 1 : 0);
  return std::move(writer).take();
}

ApprovalResponseMessage ApprovalResponseMessage::decode(ByteView bytes) {
  return decodeMessage(bytes, [](WireReader& reader) {
    ApprovalResponseMessage message;
    message.requestID = reader.readString();
    message.macID = reader.readString();
    message.deviceID = reader.readString();
    message.decision = readEnumeration(reader, ApprovalDecision::denyAndBlock);
    message.scope = readEnumeration(reader, qap::ApprovalScope::fiveMinutes);
    message.dataHash = reader.readString();
    message.decidedAt = reader.readUInt64();
    message.fingerprintShown = readFlag(reader);
    return message;
  });
}

}  // namespace quorvane
