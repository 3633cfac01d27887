#include "Pairing/PairingCoding.h"

#include "Crypto/XWing.h"

namespace quorvane::pairingcoding {
namespace {

ByteView readLimited(WireReader& reader) {
  ByteView bytes = reader.readStringView();
  if (bytes.size() > kTextLimit) throw QAPFailure(QAPFailure::Kind::malformed);
  return bytes;
}

Bytes readExactly(WireReader& reader, size_t size) {
  ByteView bytes = reader.readStringView();
  if (bytes.size() != size) throw QAPFailure(QAPFailure::Kind::malformed);
  return Bytes(bytes.begin(), bytes.end());
}

}  // namespace

std::string readText(WireReader& reader) {
  std::string text = reader.readUTF8String();
  if (text.size() > kTextLimit) throw QAPFailure(QAPFailure::Kind::malformed);
  return text;
}

SecureBytes readSecretText(WireReader& reader) { return SecureBytes(readLimited(reader)); }

Bytes readValue(WireReader& reader) { return readExactly(reader, kValueSize); }

void writeIdentity(WireWriter& writer, const DeviceIdentity& identity) {
  writer.writeString(identity.signingKey);
  writer.writeString(identity.kemKey);
  writer.writeString(identity.name);
}

DeviceIdentity readIdentity(WireReader& reader) {
  DeviceIdentity identity;
  identity.signingKey = readExactly(reader, kSigningKeySize);
  identity.kemKey = readExactly(reader, crypto::kXWingPublicKeySize);
  identity.name = readText(reader);
  return identity;
}

}  // namespace quorvane::pairingcoding
