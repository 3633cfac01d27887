// Classifies arbitrary data to sign. The input is split: a 2-byte length, that many bytes of the
// requesting key's blob, and the data. Classification must never fail, and a login it finds must
// be for exactly that key.
#include <cstdint>
#include <cstdlib>

#include "SSHWire/SignPurpose.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  ByteView input(data, size);
  if (input.size() < 2) return 0;
  size_t keyLength = std::min<size_t>(size_t{input[0]} << 8 | input[1], input.size() - 2);
  ByteView keyBlob = input.subspan(2, keyLength);
  ByteView signedData = input.subspan(2 + keyLength);
  SignPurpose purpose = SignPurpose::classify(signedData, keyBlob);
  if (auto* auth = std::get_if<SignPurpose::UserAuth>(&purpose.value)) {
    if (auth->keyBlob != Bytes(keyBlob.begin(), keyBlob.end()) || auth->sessionID.empty())
      std::abort();
  }
  return 0;
}
