// The pairing message decoders on arbitrary bytes (offer, reply, challenge, reveal, and an offer
// envelope's body opened with a fixed code): each throws only QAPFailure or PairingError, and
// what decodes encodes back to exactly the input, so no two encodings mean the same message.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "ApprovalProto/QAPFailure.h"
#include "Pairing/PairingError.h"
#include "Pairing/PairingNonceMessages.h"
#include "Pairing/PairingOffer.h"
#include "Pairing/PairingReply.h"
#include "Pairing/PairingSteps.h"

namespace {

template <typename Decode, typename Encode>
void checkRoundTrip(quorvane::ByteView input, Decode decode, Encode encode) {
  try {
    const quorvane::Bytes written = encode(decode(input));
    if (!std::equal(written.begin(), written.end(), input.begin(), input.end())) std::abort();
  } catch (const quorvane::QAPFailure&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const ByteView input(data, size);
  checkRoundTrip(input, decodePairingOffer, encodePairingOffer);
  checkRoundTrip(input, decodePairingReply, encodePairingReply);
  checkRoundTrip(input, decodePairingChallenge, encodePairingChallenge);
  checkRoundTrip(input, decodePairingReveal, encodePairingReveal);

  static const PairingCode code{"https://relay.example/", "offer-box-0001",
                                SecureBytes(bytesOf("offer-box-secret-0001")),
                                SecureBytes(Bytes(32, 0x42))};
  try {
    openPairingOffer(input, code);
  } catch (const QAPFailure&) {
  } catch (const PairingError&) {
  }
  return 0;
}
