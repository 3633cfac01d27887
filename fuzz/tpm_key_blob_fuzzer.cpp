// Decodes arbitrary bytes as a stored TPM key (the secret of a TPM key's record). A decoded key
// must be a P-256 signing key whose point can be read, and its encoding must decode again.
#include <cstdint>
#include <cstdlib>

#include "TPM/TPMKeyBlob.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const ByteView input(data, size);
  std::optional<TPMKeyBlob> blob = decodeTPMKeyBlob(input);
  if (!blob) return 0;
  std::optional<Bytes> point = p256Point(blob->publicPart);
  if (!point || point->size() != 65) std::abort();
  const SecureBytes encoded = encodeTPMKeyBlob(blob->publicPart, blob->privatePart);
  if (!decodeTPMKeyBlob(encoded.view())) std::abort();
  return 0;
}
