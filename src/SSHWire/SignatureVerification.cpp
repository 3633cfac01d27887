#include "SSHWire/SignatureVerification.h"

#include <optional>

#include "Crypto/SignatureVerification.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"

namespace quorvane {

namespace {

std::optional<crypto::EllipticCurve> curveOf(SSHKeyType type) {
  switch (type) {
    case SSHKeyType::ecdsaP256: return crypto::EllipticCurve::p256;
    case SSHKeyType::ecdsaP384: return crypto::EllipticCurve::p384;
    case SSHKeyType::ecdsaP521: return crypto::EllipticCurve::p521;
    default: return std::nullopt;
  }
}

std::optional<crypto::HashAlgorithm> rsaHash(std::string_view algorithm) {
  if (algorithm == "rsa-sha2-256") return crypto::HashAlgorithm::sha256;
  if (algorithm == "rsa-sha2-512") return crypto::HashAlgorithm::sha512;
  return std::nullopt;  // "ssh-rsa" (SHA-1) included: refused
}

// mpint bytes with the sign bit set are negative, which no key or signature value may be.
bool isNegativeMpint(ByteView bytes) { return !bytes.empty() && bytes[0] >= 0x80; }

struct Verifier {
  std::string_view algorithm;
  ByteView signature;
  ByteView data;
  std::optional<SSHKeyType> keyType;

  bool operator()(const SSHPublicKey::Ed25519& key) const {
    return algorithm == keyTypeName(SSHKeyType::ed25519) &&
           crypto::verifyEd25519(key.key, data, signature);
  }

  bool operator()(const SSHPublicKey::ECDSA& key) const {
    auto curve = keyType ? curveOf(*keyType) : std::nullopt;
    if (!curve || algorithm != keyTypeName(*keyType)) return false;
    WireReader inner(signature);
    ByteView r = inner.readStringView();
    ByteView s = inner.readStringView();
    inner.expectEnd();
    if (isNegativeMpint(r) || isNegativeMpint(s)) return false;
    return crypto::verifyECDSA(*curve, key.q, data, r, s);
  }

  bool operator()(const SSHPublicKey::RSA& key) const {
    auto hash = rsaHash(algorithm);
    if (!hash || isNegativeMpint(key.e) || isNegativeMpint(key.n)) return false;
    return crypto::verifyRSA(key.e, key.n, *hash, data, signature);
  }

  bool operator()(const SSHPublicKey::Other&) const { return false; }
};

}  // namespace

bool verify(ByteView signatureBlob, ByteView data, const SSHPublicKey& key) {
  try {
    WireReader reader(signatureBlob);
    std::string algorithm = reader.readUTF8String();
    ByteView signature = reader.readStringView();
    reader.expectEnd();
    return std::visit(Verifier{algorithm, signature, data, key.keyType()}, key.material);
  } catch (const WireError&) {
    return false;
  }
}

}  // namespace quorvane
