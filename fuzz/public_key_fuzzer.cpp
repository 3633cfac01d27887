// Decodes arbitrary bytes as a public key blob. A parsed key must keep its input as its blob;
// verification with hostile key material must answer false, never fail.
#include <cstdint>
#include <cstdlib>

#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireError.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  ByteView input(data, size);
  try {
    SSHPublicKey key = SSHPublicKey::parse(input);
    if (key.blob != Bytes(input.begin(), input.end())) std::abort();
    key.fingerprint();
    // The input's tail doubles as a signature blob over the input.
    verify(input.subspan(size / 2), input, key);
  } catch (const WireError&) {
  }
  return 0;
}
