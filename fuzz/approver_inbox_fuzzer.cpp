// Feeds arbitrary text to the approving side's inbox decoder, as if it were the payload of its
// sealed file. Nothing may escape but DecodingError, and an inbox that decodes must survive
// encoding and decoding again unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "ApproverSession/ApproverInbox.h"

using namespace quorvane;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    const JSON json = parseJSON(std::string_view(reinterpret_cast<const char*>(data), size));
    const ApproverInbox inbox = decodeApproverInbox(JSONReader(json));
    const JSON again = toJSON(inbox);
    if (decodeApproverInbox(JSONReader(again)) != inbox) std::abort();
  } catch (const DecodingError&) {
  }
  return 0;
}
