// Feeds arbitrary bytes to every reader of what the diagnostics get from other programs and files:
// ssh_config Host lines, `ssh -G` output, `systemctl --user show-environment` output, an agent's
// answer to a request for identities and an HTTP Date header. None may throw or crash; what they
// return must be consistent with their input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Diagnostics/ProbeParsing.h"

using namespace quorvane;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const std::string& host : namedHosts(text))
    if (host.empty() || host.find_first_of("*?!,") != std::string::npos) std::abort();
  if (auto agent = identityAgentLine(text); agent && agent->size() > size) std::abort();
  if (auto value = environmentValue(text, "SSH_AUTH_SOCK"); value && value->size() > size)
    std::abort();
  // A key pair takes at least eight bytes, so no answer can count more keys than that.
  if (auto count = identitiesAnswerCount(ByteView(data, size)); count && *count * 8 + 5 > size)
    std::abort();
  if (auto date = parseHTTPDate(text); date && size != 29) std::abort();
  return 0;
}
