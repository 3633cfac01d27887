// Decodes arbitrary bytes as an agent message body. Only WireError may come out, and a decoded
// sign request's data is classified as the agent would.
#include <cstdint>

#include "SSHWire/AgentRequest.h"
#include "SSHWire/SignPurpose.h"
#include "SSHWire/WireError.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  try {
    AgentRequest request = AgentRequest::parse(ByteView(data, size));
    if (auto* sign = std::get_if<AgentRequest::Sign>(&request.value))
      SignPurpose::classify(sign->data, sign->keyBlob);
  } catch (const WireError&) {
  }
  return 0;
}
