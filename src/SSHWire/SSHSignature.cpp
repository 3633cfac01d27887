#include "SSHWire/SSHSignature.h"

#include "Base/Check.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {

namespace {

Bytes signatureBlob(std::string_view algorithm, ByteView signature) {
  WireWriter writer;
  writer.writeString(algorithm);
  writer.writeString(signature);
  return std::move(writer).take();
}

}  // namespace

Bytes SSHSignature::ecdsa(SSHKeyType keyType, ByteView raw) {
  size_t half = curveFieldLength(keyType);
  QUORVANE_CHECK(half != 0, "ecdsa() needs an ECDSA key type");
  QUORVANE_CHECK(raw.size() == 2 * half, "a raw ECDSA signature is r || s of the curve's size");
  WireWriter inner;
  inner.writeMpint(raw.first(half));
  inner.writeMpint(raw.subspan(half));
  return signatureBlob(keyTypeName(keyType), inner.data());
}

Bytes SSHSignature::ed25519(ByteView signature) {
  QUORVANE_CHECK(signature.size() == 64, "an Ed25519 signature is 64 bytes");
  return signatureBlob(keyTypeName(SSHKeyType::ed25519), signature);
}

Bytes SSHSignature::rsa(std::string_view algorithm, ByteView signature) {
  QUORVANE_CHECK(algorithm == "rsa-sha2-256" || algorithm == "rsa-sha2-512",
                 "RSA signatures are made with SHA-2 only");
  return signatureBlob(algorithm, signature);
}

std::optional<std::string> signatureAlgorithm(SSHKeyType keyType, SignFlags flags) {
  if (keyType != SSHKeyType::rsa) return std::string(keyTypeName(keyType));
  if (flags.contains(SignFlags::rsaSHA2_256)) return "rsa-sha2-256";
  if (flags.contains(SignFlags::rsaSHA2_512)) return "rsa-sha2-512";
  return std::nullopt;
}

}  // namespace quorvane
