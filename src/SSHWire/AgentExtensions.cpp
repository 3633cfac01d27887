#include "SSHWire/AgentExtensions.h"

#include "SSHWire/WireWriter.h"

namespace quorvane {

AgentResponse queryExtensionResponse() {
  WireWriter writer;
  writer.writeString(kQueryExtension);
  writer.writeString(kSessionBindExtension);
  return {AgentResponse::ExtensionResponse{std::move(writer).take()}};
}

}  // namespace quorvane
