#include "SSHWire/SSHPublicKey.h"

#include "Base/Base64.h"
#include "Base/Check.h"
#include "Crypto/Hash.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {

namespace {

constexpr size_t kEd25519KeyLength = 32;

SSHPublicKey::Material parseMaterial(std::optional<SSHKeyType> type, WireReader& reader) {
  if (!type) return SSHPublicKey::Other{reader.readRest()};
  switch (*type) {
    case SSHKeyType::ed25519: {
      Bytes key = reader.readString();
      if (key.size() != kEd25519KeyLength) throw WireError::invalid("ed25519 length");
      return SSHPublicKey::Ed25519{std::move(key)};
    }
    case SSHKeyType::ecdsaP256:
    case SSHKeyType::ecdsaP384:
    case SSHKeyType::ecdsaP521: {
      std::string curve = reader.readUTF8String();
      if (curve != curveIdentifier(*type)) throw WireError::invalid("curve mismatch");
      return SSHPublicKey::ECDSA{std::move(curve), reader.readString()};
    }
    case SSHKeyType::rsa: {
      Bytes e = reader.readString();
      return SSHPublicKey::RSA{std::move(e), reader.readString()};
    }
    case SSHKeyType::mldsa44Ed25519: return SSHPublicKey::Other{reader.readRest()};
  }
  return SSHPublicKey::Other{reader.readRest()};
}

// Builders write only well-formed blobs, so a parse failure here is a bug.
SSHPublicKey parseBuilt(const Bytes& blob) {
  try {
    return SSHPublicKey::parse(blob);
  } catch (const WireError&) {
    QUORVANE_CHECK(false, "a built public key blob must parse");
  }
}

}  // namespace

SSHPublicKey SSHPublicKey::parse(ByteView blob) {
  WireReader reader(blob);
  std::string type = reader.readUTF8String();
  Material material = parseMaterial(keyTypeNamed(type), reader);
  reader.expectEnd();
  return SSHPublicKey{std::move(type), std::move(material), Bytes(blob.begin(), blob.end())};
}

SSHPublicKey SSHPublicKey::ed25519(ByteView raw) {
  QUORVANE_CHECK(raw.size() == kEd25519KeyLength, "an Ed25519 public key is 32 bytes");
  WireWriter writer;
  writer.writeString(keyTypeName(SSHKeyType::ed25519));
  writer.writeString(raw);
  return parseBuilt(writer.data());
}

SSHPublicKey SSHPublicKey::ecdsa(SSHKeyType type, ByteView x963) {
  auto curve = curveIdentifier(type);
  QUORVANE_CHECK(curve.has_value(), "ecdsa() needs an ECDSA key type");
  QUORVANE_CHECK(x963.size() == 1 + 2 * curveFieldLength(type) && x963[0] == 0x04,
                 "an ECDSA public key must be an uncompressed point of the type's curve");
  WireWriter writer;
  writer.writeString(keyTypeName(type));
  writer.writeString(*curve);
  writer.writeString(x963);
  return parseBuilt(writer.data());
}

SSHPublicKey SSHPublicKey::rsa(ByteView e, ByteView n) {
  WireWriter writer;
  writer.writeString(keyTypeName(SSHKeyType::rsa));
  writer.writeMpint(e);
  writer.writeMpint(n);
  return parseBuilt(writer.data());
}

std::string SSHPublicKey::fingerprint() const { return quorvane::fingerprint(blob); }

std::string fingerprint(ByteView blob) {
  return "SHA256:" + base64Encode(crypto::sha256(blob), Base64Padding::unpadded);
}

}  // namespace quorvane
