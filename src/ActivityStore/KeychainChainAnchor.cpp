#include "ActivityStore/KeychainChainAnchor.h"

#include "ActivityStore/ActivityStoreError.h"
#include "Base/Check.h"
#include "Base/Random.h"

namespace quorvane {

namespace {

constexpr std::string_view kChainKeyAccount = "chainKey";
constexpr std::string_view kHeadAccount = "head";
constexpr std::string_view kStartAccount = "start";
constexpr size_t kHashSize = 32;
constexpr size_t kEndSize = 8 + kHashSize;

}  // namespace

KeychainChainAnchor::KeychainChainAnchor(Keychain& keychain, std::string service)
    : keychain_(keychain), service_(std::move(service)) {}

std::optional<SecureBytes> KeychainChainAnchor::readItem(std::string_view account) {
  KeychainReadResult result = keychain_.read(service_, account);
  if (result.status == kKeychainItemNotFound) return std::nullopt;
  if (result.status != kKeychainSuccess) throw ActivityStoreError::anchorUnavailable(result.status);
  return std::move(result.data);
}

void KeychainChainAnchor::writeItem(std::string_view account, ByteView data) {
  KeychainStatus status = keychain_.update(service_, account, data);
  if (status == kKeychainItemNotFound) {
    status = keychain_.add(service_, account, data);
    // Another process added it in between; ours is the newer value.
    if (status == kKeychainDuplicateItem) status = keychain_.update(service_, account, data);
  }
  if (status != kKeychainSuccess) throw ActivityStoreError::anchorUnavailable(status);
}

void KeychainChainAnchor::removeItem(std::string_view account) {
  KeychainStatus status = keychain_.remove(service_, account);
  if (status != kKeychainSuccess && status != kKeychainItemNotFound)
    throw ActivityStoreError::anchorUnavailable(status);
}

std::optional<SecureBytes> KeychainChainAnchor::chainKey() {
  auto checked = [](SecureBytes key) {
    if (key.size() != kChainKeySize) throw ActivityStoreError::anchorCorrupted();
    return key;
  };
  if (auto existing = readItem(kChainKeyAccount)) return checked(std::move(*existing));
  SecureBytes key(kChainKeySize);
  crypto::fillRandom(std::span(key.data(), key.size()));
  KeychainStatus status = keychain_.add(service_, kChainKeyAccount, key.view());
  if (status == kKeychainSuccess) return key;
  if (status == kKeychainDuplicateItem) {
    // Another process made the key first; use that one.
    if (auto winner = readItem(kChainKeyAccount)) return checked(std::move(*winner));
  }
  throw ActivityStoreError::anchorUnavailable(status);
}

std::optional<ChainEnd> KeychainChainAnchor::readEnd(std::string_view account) {
  // The version is taken before the read: a write in between makes the next version differ, so
  // the worst case is one read too many.
  const std::optional<KeychainItemVersion> version = keychain_.version(service_, account);
  if (version) {
    MutexLock lock(knownMutex_);
    auto found = known_.find(account);
    if (found != known_.end() && found->second.version == *version) return found->second.end;
  }
  std::optional<ChainEnd> end;
  if (auto data = readItem(account)) {
    if (data->size() != kEndSize) throw ActivityStoreError::anchorCorrupted();
    uint64_t id = 0;
    for (size_t i = 0; i < 8; ++i) id = id << 8 | data->data()[i];
    end = ChainEnd{static_cast<int64_t>(id), Bytes(data->data() + 8, data->data() + kEndSize)};
  }
  if (version) {
    MutexLock lock(knownMutex_);
    known_.insert_or_assign(std::string(account), KnownEnd{*version, end});
  }
  return end;
}

void KeychainChainAnchor::writeEnd(std::string_view account, const std::optional<ChainEnd>& end) {
  if (!end) return removeItem(account);
  QUORVANE_CHECK(end->hash.size() == kHashSize, "chain hashes are 32 bytes");
  Bytes data(kEndSize);
  uint64_t id = static_cast<uint64_t>(end->id);
  for (size_t i = 0; i < 8; ++i) data[i] = static_cast<uint8_t>(id >> (56 - 8 * i));
  std::copy(end->hash.begin(), end->hash.end(), data.begin() + 8);
  writeItem(account, data);
}

std::optional<ChainEnd> KeychainChainAnchor::head() { return readEnd(kHeadAccount); }
std::optional<ChainEnd> KeychainChainAnchor::start() { return readEnd(kStartAccount); }
void KeychainChainAnchor::setHead(const std::optional<ChainEnd>& head) {
  writeEnd(kHeadAccount, head);
}
void KeychainChainAnchor::setStart(const std::optional<ChainEnd>& start) {
  writeEnd(kStartAccount, start);
}

}  // namespace quorvane
