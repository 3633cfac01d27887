// Imports arbitrary bytes as the text of a key file without a passphrase. The importer must
// refuse bad input with a KeyImportError and nothing else; any other exception or a crash is a
// finding. A key that imports must sign.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "KeyImport/KeyImporter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  try {
    const ParsedPrivateKey parsed =
        KeyImporter::parse(std::string_view(reinterpret_cast<const char*>(data), size), {});
    if (parsed.publicKey != parsed.key.publicKey()) std::abort();
    parsed.key.sign(ByteView(data, size), SignFlags::rsaSHA2_256);
  } catch (const KeyImportError&) {
  }
  return 0;
}
