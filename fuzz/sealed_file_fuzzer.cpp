// Reads arbitrary bytes as a sealed file with a fixed key: only a value or SealedFileError may
// come out. Envelopes that decode are sealed again with the right MAC and read once more, so that
// payload decoding (key records included) is reached too.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "Crypto/HMAC.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/KeyRecord.h"
#include "KeyStore/SealedFile.h"

namespace {

using namespace quorvane;

SecureBytes fixedKey() {
  SecureBytes key(32);
  for (size_t i = 0; i < key.size(); ++i) key.data()[i] = static_cast<uint8_t>(i);
  return key;
}

// Any exception other than SealedFileError escapes and is a finding.
std::optional<JSON> unseal(ByteView contents, SealingKeyProvider& provider) {
  try {
    return SealedFile::unseal(contents, "keys", provider);
  } catch (const SealedFileError&) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const ByteView input(data, size);
  FixedSealingKey provider(fixedKey());
  unseal(input, provider);

  SealedFile::Envelope envelope;
  try {
    envelope = SealedFile::Envelope::decode(input);
  } catch (const SealedFileError&) {
    return 0;
  }
  envelope.mac = crypto::hmacSHA256(
      provider.key().view(),
      SealedFile::macInput(envelope.purpose, envelope.generation, envelope.payload));
  FixedSealingKey fresh(fixedKey());
  std::optional<JSON> value = unseal(bytesOf(envelope.encode()), fresh);
  if (!value) return 0;
  try {
    const std::vector<KeyRecord> records = decodeKeyRecords(JSONReader(*value));
    if (decodeKeyRecords(JSONReader(toJSON(records))) != records) std::abort();
  } catch (const DecodingError&) {
  }
  return 0;
}
