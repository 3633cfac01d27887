// What the agent reads from other programs besides agent requests: announcement bodies, the
// user's known_hosts text, and ssh command lines (split at NUL bytes, as /proc gives them). None
// may crash; a parsed announcement must keep a reason within its limit; a destination host is
// never empty.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "AgentEngine/Announcement.h"
#include "AgentEngine/KnownHosts.h"
#include "AgentEngine/OriginBuilder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const ByteView bytes(data, size);
  if (auto announcement = parseAnnouncement(bytes, Date{1'800'000'000}))
    if (announcement->reason.size() > kMaxAnnouncedReasonLength) std::abort();

  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const KnownHostsEntry& entry : parseKnownHosts(text)) {
    if (entry.keyBlob.empty()) std::abort();
    entry.names("github.com");
    entry.names("[host]:2222");
  }

  std::vector<std::string> arguments = {"ssh"};
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '\0') {
      arguments.emplace_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  if (auto host = sshDestinationHost(arguments); host && host->empty()) std::abort();
  gitHintFromArguments(arguments);
  return 0;
}
