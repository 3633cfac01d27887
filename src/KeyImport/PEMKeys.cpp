// KeyImporter::parsePEM: the four PEM labels that hold a key in DER.
#include "KeyImport/KeyImporter.h"
#include "KeyImport/PKCSReaders.h"

namespace quorvane::KeyImporter {
namespace {

// OpenSSL's traditional encryption marks the block with "Proc-Type: 4,ENCRYPTED".
bool isLegacyEncrypted(const PEMBlock& block) {
  auto procType = block.headers.find("Proc-Type");
  return procType != block.headers.end() && procType->second == "4,ENCRYPTED";
}

}  // namespace

ParsedPrivateKey parsePEM(const PEMBlock& block, Passphrase passphrase,
                          const ImportLimits& limits) {
  if (block.label == "PRIVATE KEY") return pkcs::readPrivateKeyInfo(block.body.view(), limits);
  if (block.label == "ENCRYPTED PRIVATE KEY") {
    const SecureBytes info = pkcs::decryptPrivateKeyInfo(block.body.view(), passphrase, limits);
    return pkcs::readPrivateKeyInfo(info.view(), limits);
  }
  const bool rsa = block.label == "RSA PRIVATE KEY";
  if (!rsa && block.label != "EC PRIVATE KEY") throw KeyImportError::unsupportedFormat(block.label);
  if (isLegacyEncrypted(block)) {
    const SecureBytes body = pkcs::decryptLegacyBody(block, passphrase);
    return rsa ? pkcs::readRSAPrivateKey(body.view(), limits)
               : pkcs::readECPrivateKey(body.view(), std::nullopt);
  }
  return rsa ? pkcs::readRSAPrivateKey(block.body.view(), limits)
             : pkcs::readECPrivateKey(block.body.view(), std::nullopt);
}

}  // namespace quorvane::KeyImporter
