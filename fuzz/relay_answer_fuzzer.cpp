// Feeds arbitrary bytes to the readers of the relay's answers (mailbox creation, send token
// creation, fetch) and hands every fetch answer that parses to the fetch rules. Nothing may throw
// but RelayError::malformed; the cursor must end at the largest seq, and every delivered message
// must be an envelope of a known kind taken from an item of the answer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "RelayClient/RelayAnswers.h"
#include "RelayClient/RelayError.h"

using namespace quorvane;

namespace {

template <typename Parse>
void expectOnlyMalformed(Parse parse) {
  try {
    parse();
  } catch (const RelayError& error) {
    if (error.kind() != RelayErrorKind::malformed) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  expectOnlyMalformed([&] {
    MailboxCredentials credentials = parseMailboxCreation(text);
    if (credentials.id.empty() || credentials.secret.empty() || credentials.sendToken.empty())
      std::abort();
  });
  expectOnlyMalformed([&] {
    if (parseSendTokenCreation(text).empty()) std::abort();
  });
  expectOnlyMalformed([&] {
    std::vector<FetchedItem> items = parseFetchAnswer(text);
    RelayCursors cursors;
    std::vector<RelayMessage> messages = acceptFetchedItems(items, cursors, "m");
    uint64_t highest = 0;
    for (const FetchedItem& item : items) highest = std::max(highest, item.seq);
    if (cursors.read("m") != highest || messages.size() > items.size()) std::abort();
    for (const RelayMessage& message : messages) {
      auto kind = static_cast<uint8_t>(message.envelope.kind);
      if (kind < 1 || kind > 8) std::abort();
      if (std::ranges::none_of(items,
                               [&](const FetchedItem& item) { return item.seq == message.seq; }))
        std::abort();
    }
  });
  return 0;
}
