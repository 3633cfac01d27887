#include "SSHWire/AgentResponse.h"

#include <limits>

#include "Base/Check.h"
#include "SSHWire/AgentMessageType.h"
#include "SSHWire/Framing.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {

namespace {

void writeType(WireWriter& writer, AgentMessageType type) {
  writer.writeByte(static_cast<uint8_t>(type));
}

struct BodyEncoder {
  WireWriter& writer;

  void operator()(const AgentResponse::ExtensionResponse& response) const {
    writeType(writer, AgentMessageType::extensionResponse);
    writer.writeRaw(response.body);
  }
  void operator()(const AgentResponse::Identities& identities) const {
    QUORVANE_CHECK(identities.list.size() <= std::numeric_limits<uint32_t>::max(),
                   "the identity count must fit in 32 bits");
    writeType(writer, AgentMessageType::identitiesAnswer);
    writer.writeUInt32(static_cast<uint32_t>(identities.list.size()));
    for (const AgentResponse::Identity& identity : identities.list) {
      writer.writeString(identity.keyBlob);
      writer.writeString(identity.comment);
    }
  }
  void operator()(const AgentResponse::Signature& signature) const {
    writeType(writer, AgentMessageType::signResponse);
    writer.writeString(signature.blob);
  }
  void operator()(const AgentResponse::Success&) const {
    writeType(writer, AgentMessageType::success);
  }
  void operator()(const AgentResponse::Failure&) const {
    writeType(writer, AgentMessageType::failure);
  }
  void operator()(const AgentResponse::ExtensionFailure&) const {
    writeType(writer, AgentMessageType::extensionFailure);
  }
};

}  // namespace

Bytes AgentResponse::encode() const {
  WireWriter writer;
  std::visit(BodyEncoder{writer}, value);
  return std::move(writer).take();
}

Bytes AgentResponse::framed() const { return Framing::frame(encode()); }

}  // namespace quorvane
