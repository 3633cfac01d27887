#include "SSHWire/AgentRequest.h"

#include "SSHWire/AgentMessageType.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"

namespace quorvane {

namespace {

// Reads a lock or unlock passphrase straight into wiping storage.
SecureBytes readPassphrase(WireReader& reader) {
  SecureBytes passphrase(reader.readStringView());
  reader.expectEnd();
  return passphrase;
}

}  // namespace

AgentRequest AgentRequest::parse(ByteView body) {
  if (body.empty()) throw WireError::truncated();
  WireReader reader(body);
  uint8_t type = reader.readByte();
  switch (static_cast<AgentMessageType>(type)) {
    case AgentMessageType::requestIdentities: reader.expectEnd(); return {RequestIdentities{}};
    case AgentMessageType::signRequest: {
      Sign sign;
      sign.keyBlob = reader.readString();
      sign.data = reader.readString();
      sign.flags = SignFlags{reader.readUInt32()};
      reader.expectEnd();
      return {std::move(sign)};
    }
    case AgentMessageType::lock: return {Lock{readPassphrase(reader)}};
    case AgentMessageType::unlock: return {Unlock{readPassphrase(reader)}};
    case AgentMessageType::extension: {
      Extension extension;
      extension.name = reader.readUTF8String();
      extension.contents = reader.readRest();
      return {std::move(extension)};
    }
    default: return {Unsupported{type}};
  }
}

}  // namespace quorvane
