// The small decoders of the approval protocol on arbitrary bytes: the relay envelope (never
// fails; what decodes encodes back to the input), a device identity from JSON (only
// DecodingError; what decodes survives writing and reading again) and an X-Wing public key (what
// is accepted is kept byte for byte).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "ApprovalProto/DeviceIdentity.h"
#include "ApprovalProto/Envelope.h"
#include "Crypto/XWing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const ByteView input(data, size);
  const Bytes bytes(input.begin(), input.end());

  if (auto envelope = Envelope::decode(input); envelope && envelope->encode() != bytes)
    std::abort();

  if (auto key = crypto::XWingPublicKey::fromBytes(input); key && key->bytes() != bytes)
    std::abort();

  try {
    const JSON document = parseJSON(std::string_view(reinterpret_cast<const char*>(data), size));
    const DeviceIdentity identity = decodeDeviceIdentity(JSONReader(document));
    const JSON written = parseJSON(toJSON(identity).dump());
    if (!(decodeDeviceIdentity(JSONReader(written)) == identity)) std::abort();
  } catch (const DecodingError&) {
  }
  return 0;
}
