// Opens arbitrary bytes as a sealed box from a fixed sender to a fixed receiver, directly and
// through the candidate search that answers go through. Only QAPFailure may come out, and a box
// that opens must carry exactly the sender's signed payload (the seeds include real boxes).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <vector>

#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/QAPFailure.h"
#include "ApprovalProto/Sealing.h"
#include "ApprovalProto/SoftwareSigner.h"

namespace {

using namespace quorvane;

// Fixed keys, so that boxes sealed once (the corpus seeds) keep opening.
struct FixedParties {
  DeviceKeys receiver{
      std::make_shared<SoftwareSigner>(SoftwareSigner::fromPrivateKey(Bytes(32, 0x01))),
      *crypto::XWingPrivateKey::fromSeed(Bytes(32, 0x02)), "receiver"};
  SoftwareSigner sender = SoftwareSigner::fromPrivateKey(Bytes(32, 0x03));
  std::vector<DeviceIdentity> candidates{
      DeviceIdentity{SoftwareSigner::fromPrivateKey(Bytes(32, 0x04)).publicKey(), Bytes(), "other"},
      DeviceIdentity{sender.publicKey(), Bytes(), "sender"}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const FixedParties parties;
  const ByteView input(data, size);
  std::optional<Bytes> payload;
  try {
    payload = openMessage(input, kQAPRequestLabel, parties.sender.publicKey(), parties.receiver);
  } catch (const QAPFailure&) {
  }
  try {
    OpenedFromCandidate opened =
        openFromCandidates(input, kQAPRequestLabel, parties.candidates, parties.receiver);
    if (opened.senderIndex != 1 || opened.payload != payload) std::abort();
  } catch (const QAPFailure&) {
    if (payload) std::abort();
  }
  return 0;
}
