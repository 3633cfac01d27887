#pragma once

#include <map>
#include <string>
#include <string_view>

#include "ActivityStore/ChainAnchor.h"
#include "Base/Mutex.h"
#include "Platform/Keychain.h"

namespace quorvane {

// The anchor of the real log: generic-password items of one keychain service, so that the ends
// survive outside the database and are shared by every process that writes the log.
//   account "chainKey"  the 32-byte chain key; made from OpenSSL's random generator the first
//                       time it is asked for (when two processes race, the first one's key wins)
//   account "head"      the newest row: its id as 8 bytes big-endian, then its 32-byte hash
//   account "start"     the oldest row: its id as 8 bytes big-endian, then its 32-byte prev
// A missing item is an absent value. Keychain failures throw anchorUnavailable(status), an item
// of the wrong length anchorCorrupted. The keychain must outlive the anchor.
//
// The ends are read at every append, so the anchor keeps each end it read with the item's version
// and reads the item again only when the keychain reports another version (a write by this or
// another process).
class KeychainChainAnchor final : public ChainAnchor {
 public:
  static constexpr std::string_view kService = "com.tallowmere.quorvane.activity";
  static constexpr size_t kChainKeySize = 32;

  explicit KeychainChainAnchor(Keychain& keychain, std::string service = std::string(kService));

  std::optional<SecureBytes> chainKey() override;
  std::optional<ChainEnd> head() override;
  std::optional<ChainEnd> start() override;
  void setHead(const std::optional<ChainEnd>& head) override;
  void setStart(const std::optional<ChainEnd>& start) override;

 private:
  std::optional<SecureBytes> readItem(std::string_view account);
  void writeItem(std::string_view account, ByteView data);
  void removeItem(std::string_view account);
  std::optional<ChainEnd> readEnd(std::string_view account);
  void writeEnd(std::string_view account, const std::optional<ChainEnd>& end);

  struct KnownEnd {
    KeychainItemVersion version;
    std::optional<ChainEnd> end;
  };

  Keychain& keychain_;
  const std::string service_;
  Mutex knownMutex_;
  std::map<std::string, KnownEnd, std::less<>> known_ GUARDED_BY(knownMutex_);
};

}  // namespace quorvane
