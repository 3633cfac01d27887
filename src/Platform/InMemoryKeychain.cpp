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
  auto [where, inserted] =
      items_.try_emplace({std::string(service), std::string(account)}, SecureBytes(data));
  return inserted ? kKeychainSuccess : kKeychainDuplicateItem;
}

KeychainStatus InMemoryKeychain::update(std::string_view service, std::string_view account,
                                        ByteView data) {
  std::lock_guard lock(mutex_);
  auto found = items_.find({std::string(service), std::string(account)});
  if (found == items_.end()) return kKeychainItemNotFound;
  found->second = SecureBytes(data);
  return kKeychainSuccess;
}

KeychainStatus InMemoryKeychain::remove(std::string_view service, std::string_view account) {
  std::lock_guard lock(mutex_);
  return items_.erase({std::string(service), std::string(account)}) == 1 ? kKeychainSuccess
                                                                         : kKeychainItemNotFound;
}

}  // namespace quorvane
