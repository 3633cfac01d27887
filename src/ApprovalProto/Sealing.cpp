#include "ApprovalProto/Sealing.h"

#include <optional>

#include "ApprovalProto/QAPFailure.h"
#include "Crypto/HPKE.h"
#include "Crypto/Hash.h"
#include "Crypto/SignatureVerification.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

// The wire reader's string limit is the one this format needs.
static_assert(kSealedFieldLimit == kWireLengthLimit);

constexpr size_t kSignatureSize = 64;
constexpr size_t kSigningKeySize = 65;

Bytes concatenate(std::string_view label, ByteView first, ByteView second = {}) {
  Bytes out(label.begin(), label.end());
  out.insert(out.end(), first.begin(), first.end());
  out.insert(out.end(), second.begin(), second.end());
  return out;
}

struct TwoFields {
  ByteView first;
  ByteView second;
};

// string || string and nothing after, or QAPFailure malformed.
TwoFields readTwoFields(ByteView bytes) {
  try {
    WireReader reader(bytes);
    TwoFields fields{reader.readStringView(), reader.readStringView()};
    reader.expectEnd();
    return fields;
  } catch (const WireError&) {
    throw QAPFailure(QAPFailure::Kind::malformed);
  }
}

bool verifySignature(ByteView signingKey, ByteView message, ByteView signature) {
  if (signingKey.size() != kSigningKeySize || signingKey[0] != 0x04 ||
      signature.size() != kSignatureSize)
    return false;
  return crypto::verifyECDSA(crypto::EllipticCurve::p256, signingKey, message,
                             signature.first(kSignatureSize / 2),
                             signature.subspan(kSignatureSize / 2));
}

}  // namespace

Bytes sealMessage(ByteView plaintext, std::string_view label, const QAPSigner& signer,
                  ByteView senderHash, const DeviceIdentity& recipient) {
  const Bytes signature = signer.sign(concatenate(label, plaintext));
  WireWriter inner;
  inner.writeString(plaintext);
  inner.writeString(signature);

  std::optional<crypto::XWingPublicKey> recipientKey =
      crypto::XWingPublicKey::fromBytes(recipient.kemKey);
  if (!recipientKey) throw QAPFailure(QAPFailure::Kind::malformed);
  const Bytes info = concatenate(label, senderHash, identityHash(recipient.signingKey));
  std::optional<crypto::HPKESender> sender = crypto::hpkeSetupBaseSender(*recipientKey, info);
  if (!sender) throw QAPFailure(QAPFailure::Kind::malformed);  // a small-order X25519 key
  const Bytes ciphertext = sender->context.seal({}, inner.data());

  WireWriter sealed;
  sealed.writeString(sender->encapsulatedKey);
  sealed.writeString(ciphertext);
  return std::move(sealed).take();
}

Bytes openMessage(ByteView sealed, std::string_view label, ByteView senderSigningKey,
                  const DeviceKeys& receiver) {
  const TwoFields box = readTwoFields(sealed);
  const Bytes info = concatenate(label, identityHash(senderSigningKey),
                                 identityHash(receiver.signer->publicKey()));
  std::optional<crypto::HPKEReceiverContext> context =
      crypto::hpkeSetupBaseReceiver(receiver.kem, box.first, info);
  if (!context) throw QAPFailure(QAPFailure::Kind::decryptionFailed);
  std::optional<Bytes> inner = context->open({}, box.second);
  if (!inner) throw QAPFailure(QAPFailure::Kind::decryptionFailed);

  const TwoFields signedPart = readTwoFields(*inner);
  if (!verifySignature(senderSigningKey, concatenate(label, signedPart.first), signedPart.second))
    throw QAPFailure(QAPFailure::Kind::badSignature);
  return Bytes(signedPart.first.begin(), signedPart.first.end());
}

}  // namespace quorvane
