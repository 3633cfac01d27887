#include "ApprovalProto/DeviceKeys.h"

#include <algorithm>

#include "ApprovalProto/QAPFailure.h"
#include "ApprovalProto/SoftwareSigner.h"
#include "Base/Check.h"

namespace quorvane {

DeviceKeys DeviceKeys::generate(std::string name) {
  return DeviceKeys{std::make_shared<SoftwareSigner>(SoftwareSigner::generate()),
                    crypto::XWingPrivateKey::generate(), std::move(name)};
}

DeviceKeys DeviceKeys::restore(std::shared_ptr<const QAPSigner> signer, ByteView kemSeed,
                               ByteView kemPublicKey, std::string name) {
  QUORVANE_CHECK(signer != nullptr, "device keys need a signer");
  std::optional<crypto::XWingPrivateKey> kem = crypto::XWingPrivateKey::fromSeed(kemSeed);
  if (!kem || !std::ranges::equal(kem->publicKey().bytes(), kemPublicKey))
    throw QAPFailure(QAPFailure::Kind::malformed);
  return DeviceKeys{std::move(signer), std::move(*kem), std::move(name)};
}

DeviceIdentity DeviceKeys::identity() const {
  return DeviceIdentity{signer->publicKey(), kem.publicKey().bytes(), name};
}

}  // namespace quorvane
