#include "KeyImport/PKCSReaders.h"

#include <string>

#include "Base/Hex.h"
#include "Crypto/CBC.h"
#include "Crypto/LegacyKeyDerivation.h"
#include "Crypto/PBKDF2.h"
#include "KeyImport/DERReader.h"
#include "KeyImport/KeyBuilding.h"
#include "KeyImport/NamedCurve.h"
#include "KeyImport/ObjectIdentifiers.h"
#include "KeyImport/RSAComponents.h"
#include "KeyImport/TextScanning.h"

namespace quorvane::pkcs {
namespace {

Bytes copy(ByteView bytes) { return Bytes(bytes.begin(), bytes.end()); }

// A decryption whose output is not a DER structure was made with the wrong key.
void expectDecryptedDER(const SecureBytes& plain) {
  if (plain.empty() || plain.data()[0] != der::kSequence || !isWellFormedDER(plain.view()))
    throw KeyImportError::wrongPassphrase();
}

ParsedPrivateKey readEd25519PrivateKey(ByteView privateKeyOctets,
                                       std::optional<ByteView> publicKey) {
  // CurvePrivateKey ::= OCTET STRING, the 32-byte seed (RFC 8410 section 7).
  DERReader reader(privateKeyOctets);
  const ByteView seed = reader.readOctetString();
  reader.expectEnd();
  if (seed.size() != 32) throw KeyImportError::malformed();
  ParsedPrivateKey parsed = parsedKey(ed25519KeyFromSeed(seed), "");
  if (publicKey) {
    const auto& derived = std::get<SSHPublicKey::Ed25519>(parsed.publicKey.material).key;
    if (!std::equal(publicKey->begin(), publicKey->end(), derived.begin(), derived.end()))
      throw KeyImportError::inconsistentKey();
  }
  return parsed;
}

struct PBES2Cipher {
  crypto::CBCCipher cipher;
  ByteView iv;
};

PBES2Cipher encryptionScheme(DERReader scheme) {
  const ByteView identifier = scheme.readObjectIdentifier();
  std::optional<crypto::CBCCipher> cipher;
  if (oid::equal(identifier, oid::kAES128CBC)) cipher = crypto::CBCCipher::aes128;
  if (oid::equal(identifier, oid::kAES192CBC)) cipher = crypto::CBCCipher::aes192;
  if (oid::equal(identifier, oid::kAES256CBC)) cipher = crypto::CBCCipher::aes256;
  if (oid::equal(identifier, oid::kDESEDE3CBC)) cipher = crypto::CBCCipher::tripleDES;
  if (!cipher) throw KeyImportError::unsupportedCipher("PKCS#8 with an unknown cipher");
  const ByteView iv = scheme.readOctetString();
  scheme.expectEnd();
  if (iv.size() != crypto::blockLength(*cipher)) throw KeyImportError::malformed();
  return {*cipher, iv};
}

crypto::HashAlgorithm pseudorandomFunction(std::optional<DERReader> prf) {
  if (!prf) return crypto::HashAlgorithm::sha1;
  const ByteView identifier = prf->readObjectIdentifier();
  if (!prf->isAtEnd()) prf->readNull();
  prf->expectEnd();
  if (oid::equal(identifier, oid::kHMACWithSHA1)) return crypto::HashAlgorithm::sha1;
  if (oid::equal(identifier, oid::kHMACWithSHA256)) return crypto::HashAlgorithm::sha256;
  if (oid::equal(identifier, oid::kHMACWithSHA512)) return crypto::HashAlgorithm::sha512;
  throw KeyImportError::unsupportedCipher("PBKDF2 with an unknown hash");
}

struct LegacyCipher {
  std::string_view name;
  crypto::CBCCipher cipher;
};

constexpr LegacyCipher kLegacyCiphers[] = {
    {"AES-128-CBC", crypto::CBCCipher::aes128},
    {"AES-192-CBC", crypto::CBCCipher::aes192},
    {"AES-256-CBC", crypto::CBCCipher::aes256},
    {"DES-EDE3-CBC", crypto::CBCCipher::tripleDES},
};

std::string upperCase(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return result;
}

}  // namespace

ParsedPrivateKey readRSAPrivateKey(ByteView der, const ImportLimits& limits) {
  DERReader outer(der);
  DERReader key = outer.readConstructed();
  outer.expectEnd();
  // Version 1 announces otherPrimeInfos: more than two primes.
  if (key.readSmallInteger() != 0)
    throw KeyImportError::unsupportedKeyType("RSA with more than two primes");
  RSAComponents components;
  components.n = copy(key.readUnsignedInteger());
  components.e = copy(key.readUnsignedInteger());
  for (SecureBytes* secret : {&components.d, &components.p, &components.q, &components.dP,
                              &components.dQ, &components.qInv})
    *secret = SecureBytes(key.readUnsignedInteger());
  key.expectEnd();
  return parsedKey(importRSAKey(components, limits), "");
}

ParsedPrivateKey readECPrivateKey(ByteView der, std::optional<KeyAlgorithm> outerCurve) {
  // ECPrivateKey ::= SEQUENCE { version 1, privateKey OCTET STRING,
  //                             [0] ECParameters OPTIONAL, [1] BIT STRING OPTIONAL }
  DERReader outer(der);
  DERReader key = outer.readConstructed();
  outer.expectEnd();
  if (key.readSmallInteger() != 1) throw KeyImportError::malformed();
  const ByteView scalar = key.readOctetString();
  std::optional<KeyAlgorithm> curve = outerCurve;
  if (auto parameters = key.readOptionalConstructed(der::contextConstructed(0))) {
    const KeyAlgorithm inner = curveOfParameters(parameters->readElement());
    parameters->expectEnd();
    if (curve && *curve != inner) throw KeyImportError::malformed();
    curve = inner;
  }
  std::optional<ByteView> publicPoint;
  if (auto wrapped = key.readOptionalConstructed(der::contextConstructed(1))) {
    publicPoint = wrapped->readBitString();
    wrapped->expectEnd();
  }
  key.expectEnd();
  if (!curve) throw KeyImportError::malformed();

  ParsedPrivateKey parsed = parsedKey(ecdsaKeyFromScalar(*curve, scalar), "");
  if (publicPoint &&
      !isSamePoint(*publicPoint, std::get<SSHPublicKey::ECDSA>(parsed.publicKey.material).q))
    throw KeyImportError::inconsistentKey();
  return parsed;
}

ParsedPrivateKey readPrivateKeyInfo(ByteView der, const ImportLimits& limits) {
  // PrivateKeyInfo ::= SEQUENCE { version, AlgorithmIdentifier, privateKey OCTET STRING,
  //                               [0] attributes OPTIONAL, [1] publicKey OPTIONAL (version 1) }
  DERReader outer(der);
  DERReader info = outer.readConstructed();
  outer.expectEnd();
  const uint64_t version = info.readSmallInteger();
  if (version > 1) throw KeyImportError::malformed();
  DERReader algorithm = info.readConstructed();
  const ByteView identifier = algorithm.readObjectIdentifier();
  const ByteView privateKey = info.readOctetString();
  info.readOptionalContents(der::contextConstructed(0));
  std::optional<ByteView> publicKey;
  if (version == 1) {
    if (auto bits = info.readOptionalContents(der::contextPrimitive(1))) {
      if (bits->empty() || (*bits)[0] != 0) throw KeyImportError::malformed();
      publicKey = bits->subspan(1);
    }
  }
  info.expectEnd();

  if (oid::equal(identifier, oid::kRSAEncryption)) {
    if (!algorithm.isAtEnd()) algorithm.readNull();
    algorithm.expectEnd();
    return readRSAPrivateKey(privateKey, limits);
  }
  if (oid::equal(identifier, oid::kECPublicKey)) {
    const KeyAlgorithm curve = curveOfParameters(algorithm.readElement());
    algorithm.expectEnd();
    return readECPrivateKey(privateKey, curve);
  }
  if (oid::equal(identifier, oid::kEd25519)) {
    algorithm.expectEnd();
    return readEd25519PrivateKey(privateKey, publicKey);
  }
  throw KeyImportError::unsupportedKeyType("PKCS#8 algorithm " +
                                           dottedObjectIdentifier(identifier));
}

SecureBytes decryptPrivateKeyInfo(ByteView der, KeyImporter::Passphrase passphrase,
                                  const ImportLimits& limits) {
  // EncryptedPrivateKeyInfo ::= SEQUENCE { AlgorithmIdentifier, encryptedData OCTET STRING }
  DERReader outer(der);
  DERReader encrypted = outer.readConstructed();
  outer.expectEnd();
  DERReader algorithm = encrypted.readConstructed();
  const ByteView ciphertext = encrypted.readOctetString();
  encrypted.expectEnd();
  if (!oid::equal(algorithm.readObjectIdentifier(), oid::kPBES2))
    throw KeyImportError::unsupportedCipher("PKCS#8 encryption other than PBES2");

  // PBES2-params ::= SEQUENCE { keyDerivationFunc, encryptionScheme }
  DERReader parameters = algorithm.readConstructed();
  algorithm.expectEnd();
  DERReader derivation = parameters.readConstructed();
  DERReader scheme = parameters.readConstructed();
  parameters.expectEnd();
  if (!oid::equal(derivation.readObjectIdentifier(), oid::kPBKDF2))
    throw KeyImportError::unsupportedCipher("PBES2 key derivation other than PBKDF2");

  // PBKDF2-params ::= SEQUENCE { salt OCTET STRING, iterationCount, keyLength OPTIONAL,
  //                              prf DEFAULT hmacWithSHA1 }
  DERReader kdf = derivation.readConstructed();
  derivation.expectEnd();
  const ByteView salt = kdf.readOctetString();
  const ByteView iterations = kdf.readUnsignedInteger();
  std::optional<uint64_t> keyLength;
  if (kdf.peekTag() == der::kInteger) keyLength = kdf.readSmallInteger();
  const crypto::HashAlgorithm prf =
      pseudorandomFunction(kdf.readOptionalConstructed(der::kSequence));
  kdf.expectEnd();
  if (iterations.empty()) throw KeyImportError::malformed();
  uint64_t count = 0;
  if (iterations.size() <= 8)
    for (uint8_t byte : iterations) count = (count << 8) | byte;
  if (iterations.size() > 8 || count > limits.maximumPBKDF2Iterations)
    throw KeyImportError::unsupportedFormat("PBKDF2 with " + decimalText(iterations) +
                                            " iterations (at most " +
                                            std::to_string(limits.maximumPBKDF2Iterations) + ")");

  const PBES2Cipher cipher = encryptionScheme(scheme);
  if (keyLength && *keyLength != crypto::keyLength(cipher.cipher))
    throw KeyImportError::malformed();
  if (!passphrase) throw KeyImportError::passphraseRequired();

  const SecureBytes key = crypto::pbkdf2(prf, *passphrase, salt, static_cast<uint32_t>(count),
                                         crypto::keyLength(cipher.cipher));
  auto plain = crypto::cbcDecrypt(cipher.cipher, key.view(), cipher.iv, ciphertext,
                                  crypto::CBCPadding::pkcs7);
  if (!plain) throw KeyImportError::wrongPassphrase();
  expectDecryptedDER(*plain);
  return std::move(*plain);
}

SecureBytes decryptLegacyBody(const PEMBlock& block, KeyImporter::Passphrase passphrase) {
  auto info = block.headers.find("DEK-Info");
  if (info == block.headers.end()) throw KeyImportError::malformed();
  const std::string_view value = info->second;
  const size_t comma = value.find(',');
  const std::string_view name = KeyImporter::trimWhitespace(value.substr(0, comma));
  const std::string upperName = upperCase(name);
  const LegacyCipher* cipher = nullptr;
  for (const LegacyCipher& candidate : kLegacyCiphers)
    if (candidate.name == upperName) cipher = &candidate;
  if (cipher == nullptr) throw KeyImportError::unsupportedCipher(std::string(name));

  if (comma == std::string_view::npos) throw KeyImportError::malformed();
  auto iv = hexDecode(KeyImporter::trimWhitespace(value.substr(comma + 1)));
  if (!iv || iv->size() != crypto::blockLength(cipher->cipher)) throw KeyImportError::malformed();
  if (!passphrase) throw KeyImportError::passphraseRequired();

  const SecureBytes key =
      crypto::legacyPEMKey(*passphrase, ByteView(*iv).first(8), crypto::keyLength(cipher->cipher));
  auto plain = crypto::cbcDecrypt(cipher->cipher, key.view(), *iv, block.body.view(),
                                  crypto::CBCPadding::pkcs7);
  if (!plain) throw KeyImportError::wrongPassphrase();
  expectDecryptedDER(*plain);
  return std::move(*plain);
}

}  // namespace quorvane::pkcs
