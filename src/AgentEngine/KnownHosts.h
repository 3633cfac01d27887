#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AgentEngine/HostNameResolver.h"

namespace quorvane {

// One usable line of an OpenSSH known-hosts file (sshd(8), "SSH_KNOWN_HOSTS FILE FORMAT"):
//   [marker] patterns keytype base64-key [comment]
// Lines with the @cert-authority or @revoked marker, comments, blank lines and lines whose key
// does not decode are skipped: they never confirm a name.
struct KnownHostsEntry {
  // Either comma-separated patterns (with *, ? and !negation, "[host]:port" for other ports) ...
  std::vector<std::string> patterns;
  // ... or one hashed name: "|1|" base64(salt) "|" base64(HMAC-SHA1(salt, name)).
  Bytes hashSalt;
  Bytes hashedName;
  Bytes keyBlob;

  // Whether `host` (lower case; "host" for port 22, "[host]:port" for another port, as ssh writes
  // it) is one of this entry's names.
  bool names(std::string_view host) const;
};

// The usable entries of a known-hosts text.
std::vector<KnownHostsEntry> parseKnownHosts(std::string_view text);

// A HostNameResolver over known-hosts files, read again whenever one of them changes.
class KnownHostsResolver final : public HostNameResolver {
 public:
  explicit KnownHostsResolver(std::vector<std::filesystem::path> files);

  std::vector<std::string> names(ByteView hostKeyBlob) override;
  HostNameMatch check(std::string_view name, ByteView hostKeyBlob) override;

 private:
  // Re-reads the files when a modification time or size changed. Call with mutex_ held.
  void refreshLocked();

  std::vector<std::filesystem::path> files_;
  std::mutex mutex_;
  std::string signature_;                 // guarded by mutex_: what the files looked like
  std::vector<KnownHostsEntry> entries_;  // guarded by mutex_
};

}  // namespace quorvane
