#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "Platform/Keychain.h"

namespace quorvane {

// A keychain held in memory, for tests of the layers above and for previews.
class InMemoryKeychain final : public Keychain {
 public:
  KeychainReadResult read(std::string_view service, std::string_view account) override;
  KeychainStatus add(std::string_view service, std::string_view account, ByteView data) override;
  KeychainStatus update(std::string_view service, std::string_view account, ByteView data) override;
  KeychainStatus remove(std::string_view service, std::string_view account) override;
  // A count of the writes and removals of the item.
  std::optional<KeychainItemVersion> version(std::string_view service,
                                             std::string_view account) override;

 private:
  using ItemKey = std::pair<std::string, std::string>;
  void changed(const ItemKey& key) { ++changes_[key]; }

  std::mutex mutex_;
  std::map<ItemKey, SecureBytes> items_;  // guarded by mutex_
  std::map<ItemKey, uint64_t> changes_;   // guarded by mutex_
};

}  // namespace quorvane
