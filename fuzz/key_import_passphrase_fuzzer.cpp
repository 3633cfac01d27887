// Imports arbitrary bytes as a key file with a passphrase: the first byte gives the passphrase's
// length (0 to 31), the next bytes the passphrase, the rest the file text. The key derivations are
// capped far below the real limits (1 bcrypt round, 1000 PBKDF2 iterations) so that decryption
// paths run thousands of times a second; files asking for more are refused as over the limit.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "KeyImport/KeyImporter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  if (size == 0) return 0;
  const size_t length = std::min<size_t>(data[0] & 0x1f, size - 1);
  const SecureBytes passphrase(ByteView(data + 1, length));
  const std::string_view text(reinterpret_cast<const char*>(data + 1 + length), size - 1 - length);
  ImportLimits limits = ImportLimits::standard();
  limits.maximumBcryptRounds = 1;
  limits.maximumPBKDF2Iterations = 1000;
  try {
    const ParsedPrivateKey parsed = KeyImporter::parse(text, passphrase, limits);
    if (parsed.publicKey != parsed.key.publicKey()) std::abort();
  } catch (const KeyImportError&) {
  }
  return 0;
}
