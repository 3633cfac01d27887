#include "Pairing/PairingReply.h"

#include "Pairing/PairingCoding.h"

namespace quorvane {

using namespace pairingcoding;

Bytes encodePairingReplyUntagged(const PairingReply& reply) {
  WireWriter writer;
  writer.writeUInt32(qapcoding::kMessageVersion);
  writeIdentity(writer, reply.deviceIdentity);
  writer.writeByte(static_cast<uint8_t>(reply.kind));
  writer.writeString(reply.deviceMailbox);
  writer.writeString(reply.deviceSendToken.view());
  writer.writeString(reply.commitment);
  return std::move(writer).take();
}

Bytes encodePairingReply(const PairingReply& reply) {
  WireWriter writer;
  writer.writeRaw(encodePairingReplyUntagged(reply));
  writer.writeString(reply.mac);
  return std::move(writer).take();
}

PairingReply decodePairingReply(ByteView bytes) {
  return qapcoding::decodeMessage(bytes, [](WireReader& reader) {
    PairingReply reply;
    reply.deviceIdentity = readIdentity(reader);
    reply.kind = qapcoding::readEnumeration(reader, DeviceKind::mac);
    reply.deviceMailbox = readText(reader);
    reply.deviceSendToken = readSecretText(reader);
    reply.commitment = readValue(reader);
    reply.mac = readValue(reader);
    return reply;
  });
}

}  // namespace quorvane
