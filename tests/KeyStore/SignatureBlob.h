#pragma once

#include <algorithm>
#include <string>

#include "Base/Bytes.h"
#include "SSHWire/WireReader.h"

namespace quorvane::testing {

// The two strings of an SSH signature blob.
struct SignatureBlob {
  std::string algorithm;
  Bytes signature;
};

inline SignatureBlob parseSignatureBlob(ByteView blob) {
  WireReader reader(blob);
  SignatureBlob parsed{textOf(reader.readString()), reader.readString()};
  reader.expectEnd();
  return parsed;
}

// r || s, each left-padded to `half` bytes, from an ECDSA signature's mpint pair.
inline Bytes ecdsaRawSignature(ByteView blob, size_t half) {
  const Bytes inner = parseSignatureBlob(blob).signature;
  WireReader reader(inner);
  Bytes raw(2 * half);
  for (size_t part = 0; part < 2; ++part) {
    Bytes number = reader.readString();
    number.erase(number.begin(),
                 std::find_if(number.begin(), number.end(), [](uint8_t b) { return b != 0; }));
    std::copy(number.begin(), number.end(), raw.begin() + (part + 1) * half - number.size());
  }
  return raw;
}

}  // namespace quorvane::testing
