// KeyImporter::parseOpenSSH: the "openssh-key-v1" container of OpenSSH private key files
// (OpenSSH PROTOCOL.key), read with the SSH wire reader:
//
//   byte[15]  "openssh-key-v1" and a zero byte
//   string    ciphername         (see OpenSSHCipher)
//   string    kdfname            "none" or "bcrypt"
//   string    kdfoptions         empty for "none"; for "bcrypt": string salt, uint32 rounds
//   uint32    number of keys     exactly 1 is imported
//   string    public key blob
//   string    private section    encrypted unless the cipher is "none"
//   byte[]    the AEAD tag       (GCM ciphers only)
//
// The plain private section holds two equal check integers, the key type and its private numbers,
// the comment, and padding bytes 1, 2, 3, ...
#include <algorithm>
#include <array>

#include "Crypto/BcryptPBKDF.h"
#include "KeyImport/KeyBuilding.h"
#include "KeyImport/KeyImporter.h"
#include "KeyImport/RSAComponents.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"

namespace quorvane::KeyImporter {
namespace {

constexpr std::string_view kMagic{"openssh-key-v1\0", 15};

struct Derivation {
  ByteView salt;  // empty for kdf "none"
  uint32_t rounds = 0;
};

bool isImportedKeyType(std::string_view type) {
  return type == "ssh-ed25519" || type == "ecdsa-sha2-nistp256" || type == "ecdsa-sha2-nistp384" ||
         type == "ssh-rsa";
}

// Checks the cipher against the KDF and reads the KDF's options.
Derivation readDerivation(const OpenSSHCipher& cipher, std::string_view kdfName,
                          ByteView kdfOptions, const ImportLimits& limits) {
  if (kdfName == "none") {
    if (cipher.mode != OpenSSHCipher::Mode::none || !kdfOptions.empty())
      throw KeyImportError::malformed();
    return {};
  }
  if (kdfName != "bcrypt")
    throw KeyImportError::unsupportedFormat("key derivation " + std::string(kdfName));
  if (cipher.mode == OpenSSHCipher::Mode::none) throw KeyImportError::malformed();
  WireReader options(kdfOptions);
  Derivation derivation{options.readStringView(), options.readUInt32()};
  options.expectEnd();
  if (derivation.salt.empty() || derivation.rounds == 0) throw KeyImportError::malformed();
  if (derivation.rounds > limits.maximumBcryptRounds)
    throw KeyImportError::unsupportedFormat("bcrypt with " + std::to_string(derivation.rounds) +
                                            " rounds (at most " +
                                            std::to_string(limits.maximumBcryptRounds) + ")");
  return derivation;
}

// An mpint's magnitude; negative numbers are malformed.
ByteView mpintMagnitude(ByteView raw) {
  if (!raw.empty() && (raw[0] & 0x80) != 0) throw KeyImportError::malformed();
  while (!raw.empty() && raw[0] == 0) raw = raw.subspan(1);
  return raw;
}

ImportedKey readEd25519(WireReader& section) {
  const ByteView publicKey = section.readStringView();
  const ByteView privateKey = section.readStringView();
  // The private string is seed || public key.
  if (publicKey.size() != 32 || privateKey.size() != 64 ||
      !std::equal(publicKey.begin(), publicKey.end(), privateKey.begin() + 32))
    throw KeyImportError::malformed();
  return ed25519KeyFromSeed(privateKey.first(32));
}

ImportedKey readECDSA(WireReader& section, KeyAlgorithm algorithm) {
  const std::string_view expectedCurve =
      algorithm == KeyAlgorithm::ecdsaP256 ? "nistp256" : "nistp384";
  const ByteView curve = section.readStringView();
  if (std::string_view(reinterpret_cast<const char*>(curve.data()), curve.size()) != expectedCurve)
    throw KeyImportError::malformed();
  const ByteView point = section.readStringView();
  ImportedKey key = ecdsaKeyFromScalar(algorithm, mpintMagnitude(section.readStringView()));
  const Bytes& derived = std::get<SSHPublicKey::ECDSA>(key.publicKey().material).q;
  if (!std::equal(point.begin(), point.end(), derived.begin(), derived.end()))
    throw KeyImportError::inconsistentKey();
  return key;
}

ImportedKey readRSA(WireReader& section, const ImportLimits& limits) {
  const ByteView n = mpintMagnitude(section.readStringView());
  const ByteView e = mpintMagnitude(section.readStringView());
  const ByteView d = mpintMagnitude(section.readStringView());
  const ByteView iqmp = mpintMagnitude(section.readStringView());
  const ByteView p = mpintMagnitude(section.readStringView());
  const ByteView q = mpintMagnitude(section.readStringView());
  checkRSAKeySize(n, limits);
  return importRSAKey(RSAComponents::fromOpenSSH(n, e, d, iqmp, p, q), limits);
}

ParsedPrivateKey readPrivateSection(ByteView plain, bool encrypted, const SSHPublicKey& publicKey,
                                    const ImportLimits& limits) {
  WireReader section(plain);
  const uint32_t check1 = section.readUInt32();
  const uint32_t check2 = section.readUInt32();
  if (check1 != check2)
    throw encrypted ? KeyImportError::wrongPassphrase() : KeyImportError::malformed();
  const ByteView type = section.readStringView();
  if (!std::equal(type.begin(), type.end(), publicKey.type.begin(), publicKey.type.end()))
    throw KeyImportError::inconsistentKey();

  std::optional<ImportedKey> key;
  switch (*publicKey.keyType()) {
    case SSHKeyType::ed25519: key = readEd25519(section); break;
    case SSHKeyType::ecdsaP256: key = readECDSA(section, KeyAlgorithm::ecdsaP256); break;
    case SSHKeyType::ecdsaP384: key = readECDSA(section, KeyAlgorithm::ecdsaP384); break;
    case SSHKeyType::rsa: key = readRSA(section, limits); break;
    default: throw KeyImportError::unsupportedKeyType(publicKey.type);
  }
  std::string comment = section.readUTF8String();
  for (uint8_t expected = 1; !section.isAtEnd(); ++expected)
    if (section.readByte() != expected) throw KeyImportError::malformed();

  if (key->publicKey().blob != publicKey.blob) throw KeyImportError::inconsistentKey();
  return parsedKey(std::move(*key), std::move(comment));
}

}  // namespace

ParsedPrivateKey parseOpenSSH(ByteView body, Passphrase passphrase, const ImportLimits& limits) {
  try {
    WireReader container(body);
    const Bytes magic = container.readBytes(kMagic.size());
    if (!std::equal(magic.begin(), magic.end(), kMagic.begin(), kMagic.end()))
      throw KeyImportError::malformed();
    const std::string cipherName = textOf(container.readStringView());
    const std::string kdfName = textOf(container.readStringView());
    const ByteView kdfOptions = container.readStringView();
    const uint32_t keyCount = container.readUInt32();
    const ByteView publicBlob = container.readStringView();
    const ByteView encryptedSection = container.readStringView();
    const ByteView tag = body.subspan(container.offset());

    if (keyCount == 0) throw KeyImportError::malformed();
    if (keyCount > 1) throw KeyImportError::multipleKeys();
    WireReader blobReader(publicBlob);
    const std::string publicType = textOf(blobReader.readStringView());
    if (!isImportedKeyType(publicType)) throw KeyImportError::unsupportedKeyType(publicType);
    const SSHPublicKey publicKey = SSHPublicKey::parse(publicBlob);

    const OpenSSHCipher cipher = OpenSSHCipher::named(cipherName);
    if (cipher.mode == OpenSSHCipher::Mode::unknown)
      throw KeyImportError::unsupportedCipher(cipherName);
    const Derivation derivation = readDerivation(cipher, kdfName, kdfOptions, limits);

    if (encryptedSection.size() < cipher.blockSize ||
        encryptedSection.size() % cipher.blockSize != 0 || tag.size() != cipher.tagLength)
      throw KeyImportError::malformed();

    const bool encrypted = cipher.mode != OpenSSHCipher::Mode::none;
    if (!encrypted) return readPrivateSection(encryptedSection, false, publicKey, limits);

    if (!passphrase) throw KeyImportError::passphraseRequired();
    auto derived = crypto::bcryptPBKDF(*passphrase, derivation.salt, derivation.rounds,
                                       cipher.keyLength + cipher.ivLength);
    if (!derived) throw KeyImportError::malformed();
    const ByteView keyAndIV = derived->view();
    const SecureBytes plain = decryptPrivateSection(
        cipher, keyAndIV.first(cipher.keyLength),
        keyAndIV.subspan(cipher.keyLength, cipher.ivLength), encryptedSection, tag);
    return readPrivateSection(plain.view(), true, publicKey, limits);
  } catch (const WireError&) {
    throw KeyImportError::malformed();
  }
}

}  // namespace quorvane::KeyImporter
