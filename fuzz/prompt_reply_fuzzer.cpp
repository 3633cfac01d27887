// A frontend's reply to a presence verification prompt, as the agent reads it from the control
// socket. Nothing may crash or over-read; a parsed answer encodes and parses back to itself; any
// bytes, encoded as an answer, parse back to those bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Base/DecodingError.h"
#include "ControlProtocol/PromptReply.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const ByteView bytes(data, size);
  try {
    PromptReply reply = parsePromptReply(bytes);
    if (reply.cancelled && !reply.answer.empty()) std::abort();
    if (!reply.cancelled) {
      SecureBytes line = encodePromptAnswer(reply.answer.view());
      PromptReply again = parsePromptReply(line.view().first(line.size() - 1));
      if (again.cancelled || !(again.answer == reply.answer)) std::abort();
    }
  } catch (const DecodingError&) {
  }
  if (size <= kMaxPromptReplyLength / 6 - 64) {
    SecureBytes line = encodePromptAnswer(bytes);
    PromptReply back = parsePromptReply(line.view().first(line.size() - 1));
    if (back.cancelled || !(back.answer == SecureBytes(bytes))) std::abort();
  }
  return 0;
}
