#include "Pairing/PairingOffer.h"

#include "Base/Check.h"
#include "Pairing/PairingCoding.h"

namespace quorvane {

using namespace pairingcoding;

Bytes encodePairingOffer(const PairingOffer& offer) {
  QUORVANE_CHECK(offer.secret.size() == kValueSize, "an offer's secret is 32 bytes");
  WireWriter writer;
  writer.writeUInt32(qapcoding::kMessageVersion);
  writer.writeString(offer.relayURL);
  writer.writeString(offer.macMailbox);
  writer.writeString(offer.macSendToken.view());
  writer.writeString(offer.pairingMailbox);
  writer.writeString(offer.pairingSendToken.view());
  writeIdentity(writer, offer.macIdentity);
  writer.writeString(offer.secret.view());
  writer.writeUInt64(offer.expiresAt);
  return std::move(writer).take();
}

PairingOffer decodePairingOffer(ByteView bytes) {
  return qapcoding::decodeMessage(bytes, [](WireReader& reader) {
    PairingOffer offer;
    offer.relayURL = readText(reader);
    offer.macMailbox = readText(reader);
    offer.macSendToken = readSecretText(reader);
    offer.pairingMailbox = readText(reader);
    offer.pairingSendToken = readSecretText(reader);
    offer.macIdentity = readIdentity(reader);
    Bytes secret = readValue(reader);
    offer.secret = SecureBytes::adopt(secret);
    offer.expiresAt = reader.readUInt64();
    return offer;
  });
}

}  // namespace quorvane
