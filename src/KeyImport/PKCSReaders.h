#pragma once

// The readers of the DER structures inside PEM key files, for KeyImporter::parsePEM. Each reads
// strictly (see DERReader) and throws KeyImportError.
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "KeyImport/ImportLimits.h"
#include "KeyImport/KeyImporter.h"
#include "KeyImport/PEMBlock.h"
#include "KeyImport/ParsedPrivateKey.h"

namespace quorvane::pkcs {

// PKCS#1 RSAPrivateKey (RFC 8017 appendix A.1.2).
ParsedPrivateKey readRSAPrivateKey(ByteView der, const ImportLimits& limits);

// SEC 1 ECPrivateKey (RFC 5915). `outerCurve` is the curve named by an enclosing PKCS#8
// structure, if any.
ParsedPrivateKey readECPrivateKey(ByteView der, std::optional<KeyAlgorithm> outerCurve);

// PKCS#8 PrivateKeyInfo / OneAsymmetricKey (RFC 5958) holding an RSA, EC or Ed25519 key.
ParsedPrivateKey readPrivateKeyInfo(ByteView der, const ImportLimits& limits);

// The PrivateKeyInfo inside a PKCS#8 EncryptedPrivateKeyInfo (PBES2 with PBKDF2 and a CBC
// cipher, RFC 8018).
SecureBytes decryptPrivateKeyInfo(ByteView der, KeyImporter::Passphrase passphrase,
                                  const ImportLimits& limits);

// The DER body of a traditional PEM block encrypted by OpenSSL (Proc-Type and DEK-Info headers).
SecureBytes decryptLegacyBody(const PEMBlock& block, KeyImporter::Passphrase passphrase);

}  // namespace quorvane::pkcs
