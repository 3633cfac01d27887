// Decodes arbitrary bytes as an approval request and as an approval response. Only QAPFailure may
// come out, and the encoding has exactly one form: whatever decodes must encode back to the same
// bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "ApprovalProto/ApprovalRequestMessage.h"
#include "ApprovalProto/ApprovalResponseMessage.h"
#include "ApprovalProto/QAPFailure.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const ByteView input(data, size);
  try {
    if (ApprovalRequestMessage::decode(input).encode() != Bytes(input.begin(), input.end()))
      std::abort();
  } catch (const QAPFailure&) {
  }
  try {
    if (ApprovalResponseMessage::decode(input).encode() != Bytes(input.begin(), input.end()))
      std::abort();
  } catch (const QAPFailure&) {
  }
  return 0;
}
