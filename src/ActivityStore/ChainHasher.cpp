#include "ActivityStore/ChainHasher.h"

namespace quorvane {

ChainHasher::ChainHasher(const std::optional<SecureBytes>& chainKey) {
  if (chainKey)
    mac_ = std::make_unique<crypto::HMACContext>(crypto::HashAlgorithm::sha256, chainKey->view());
  else
    digest_ = std::make_unique<crypto::DigestContext>(crypto::HashAlgorithm::sha256);
}

ChainHash ChainHasher::hash(ByteView prev, std::string_view json) {
  ByteView text(reinterpret_cast<const uint8_t*>(json.data()), json.size());
  ChainHash out;
  if (mac_) {
    mac_->update(prev);
    mac_->update(text);
    mac_->finish(out);
  } else {
    digest_->update(prev);
    digest_->update(text);
    digest_->finish(out);
  }
  return out;
}

}  // namespace quorvane
