// Decodes arbitrary bytes as a keychain item file: only an item or KeychainItemError may come
// out, and an item that decodes must encode back to exactly the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Platform/KeychainItemFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const ByteView input(data, size);
  try {
    const KeychainItemFile item = KeychainItemFile::decode(input);
    if (item.encode() != SecureBytes(input)) std::abort();
  } catch (const KeychainItemError&) {
  }
  return 0;
}
