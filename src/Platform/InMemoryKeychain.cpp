#include "Platform/InMemoryKeychain.h"

namespace quorvane {

KeychainReadResult InMemoryKeychain::read(std::string_view service, std::string_view account) {
  std::lock_guard lock(mutex_);
  auto found = items_.find({std::string(service), std::string(account)});
  if (found == items_.end()) return {kKeychainItemNotFound, {}};
  return {kKeychainSuccess, found->second};
}

KeychainStatus InMemoryKeychain::add(std::string_view service, std::string_view account,
                                     ByteView data) {
  std::lock_guard lock(mutex_);
  const ItemKey key{std::string(service), std::string(account)};
  auto [where, inserted] = items_.try_emplace(key, SecureBytes(data));
  if (!inserted) return kKeychainDuplicateItem;
  changed(key);
  return kKeychainSuccess;
}

KeychainStatus InMemoryKeychain::update(std::string_view service, std::string_view account,
                                        ByteView data) {
  std::lock_guard lock(mutex_);
  auto found = items_.find({std::string(service), std::string(account)});
  if (found == items_.end()) return kKeychainItemNotFound;
  found->second = SecureBytes(data);
  changed(found->first);
  return kKeychainSuccess;
}

KeychainStatus InMemoryKeychain::remove(std::string_view service, std::string_view account) {
  std::lock_guard lock(mutex_);
  const ItemKey key{std::string(service), std::string(account)};
  if (items_.erase(key) != 1) return kKeychainItemNotFound;
  changed(key);
  return kKeychainSuccess;
}

std::optional<KeychainItemVersion> InMemoryKeychain::version(std::string_view service,
                                                             std::string_view account) {
  std::lock_guard lock(mutex_);
  auto found = changes_.find({std::string(service), std::string(account)});
  return KeychainItemVersion{{found == changes_.end() ? 0 : found->second}};
}

}  // namespace quorvane
