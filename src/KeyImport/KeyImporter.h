#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "KeyImport/ImportLimits.h"
#include "KeyImport/KeyImportError.h"
#include "KeyImport/OpenSSHCipher.h"
#include "KeyImport/PEMBlock.h"
#include "KeyImport/ParsedPrivateKey.h"

// Reads private key files: the OpenSSH format (plain or encrypted with bcrypt_pbkdf) and the PEM
// family (PKCS#1 RSA, SEC1 EC, PKCS#8 plain and PBES2-encrypted, OpenSSL's traditional
// encryption). Everything else is refused with a KeyImportError that names what was found. Pure
// functions: no files, no key storage. Every function throws KeyImportError and nothing else for
// any input.
namespace quorvane::KeyImporter {

// The passphrase as given; nothing (or empty) when the user gave none.
using Passphrase = std::optional<ByteView>;

// The entry point: the text of a key file and the passphrase the user typed (empty: none; used as
// its bytes, unchanged). Detects the format and reads the one private key in it.
ParsedPrivateKey parse(std::string_view text, const SecureBytes& passphrase,
                       const ImportLimits& limits = ImportLimits::standard());

// The PEM blocks of `text` in file order; text around the blocks is ignored. Throws malformed for a
// broken block (no end line, a stray armour line, bad or empty base64).
std::vector<PEMBlock> pemBlocks(std::string_view text);

// The body of an "OPENSSH PRIVATE KEY" block.
ParsedPrivateKey parseOpenSSH(ByteView body, Passphrase passphrase, const ImportLimits& limits);

// A block labelled "RSA PRIVATE KEY", "EC PRIVATE KEY", "PRIVATE KEY" or "ENCRYPTED PRIVATE KEY".
// The comment of the result is empty.
ParsedPrivateKey parsePEM(const PEMBlock& block, Passphrase passphrase, const ImportLimits& limits);

// Decrypts the private section of an OpenSSH container with the derived key and IV; `tag` is the
// GCM tag (empty for the other modes). Throws wrongPassphrase when the tag does not verify,
// malformed when the section cannot be decrypted as it stands.
// REQUIRES: cipher is encrypting (not none or unknown); key and iv have its lengths.
SecureBytes decryptPrivateSection(const OpenSSHCipher& cipher, ByteView key, ByteView iv,
                                  ByteView section, ByteView tag);

}  // namespace quorvane::KeyImporter
