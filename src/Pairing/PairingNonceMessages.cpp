#include "Pairing/PairingNonceMessages.h"

#include "Pairing/PairingCoding.h"

namespace quorvane {

using namespace pairingcoding;

Bytes encodePairingChallenge(const PairingChallenge& challenge) {
  WireWriter writer;
  writer.writeUInt32(qapcoding::kMessageVersion);
  writer.writeString(challenge.transcriptHash);
  writer.writeString(challenge.macNonce);
  return std::move(writer).take();
}

PairingChallenge decodePairingChallenge(ByteView bytes) {
  return qapcoding::decodeMessage(bytes, [](WireReader& reader) {
    PairingChallenge challenge;
    challenge.transcriptHash = readValue(reader);
    challenge.macNonce = readValue(reader);
    return challenge;
  });
}

Bytes encodePairingReveal(const PairingReveal& reveal) {
  WireWriter writer;
  writer.writeUInt32(qapcoding::kMessageVersion);
  writer.writeString(reveal.transcriptHash);
  writer.writeString(reveal.macNonce);
  writer.writeString(reveal.deviceNonce);
  return std::move(writer).take();
}

PairingReveal decodePairingReveal(ByteView bytes) {
  return qapcoding::decodeMessage(bytes, [](WireReader& reader) {
    PairingReveal reveal;
    reveal.transcriptHash = readValue(reader);
    reveal.macNonce = readValue(reader);
    reveal.deviceNonce = readValue(reader);
    return reveal;
  });
}

}  // namespace quorvane
