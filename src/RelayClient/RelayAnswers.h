#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Base/SecureBytes.h"
#include "RelayClient/MailboxCredentials.h"
#include "RelayClient/RelayCursors.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// Readers of the relay's JSON answers (snake case on the wire). Each throws RelayError::malformed
// for text that is not JSON, not an object, or lacks a field in its type; extra keys are ignored.

// A mailbox creation: {"id", "secret", "send_token"}, each a non-empty string.
MailboxCredentials parseMailboxCreation(std::string_view body);

// A send token creation: {"send_token"}, a non-empty string.
SecureBytes parseSendTokenCreation(std::string_view body);

// One item of a fetch answer as the relay wrote it.
struct FetchedItem {
  uint64_t seq = 0;
  std::string data;  // standard base64 of the message's bytes; not checked here

  friend bool operator==(const FetchedItem&, const FetchedItem&) = default;
};

// A fetch answer: {"messages": [{"seq": unsigned 64-bit integer, "data": string}, ...]}.
std::vector<FetchedItem> parseFetchAnswer(std::string_view body);

// What a fetch delivers from the items of its answer: raises the cursor of `mailboxID` to the
// largest seq among all items (also those left out; never downwards; untouched for an empty
// list), then keeps, in order, the items whose data is base64 of an envelope (non-empty, its
// first byte a known kind).
std::vector<RelayMessage> acceptFetchedItems(const std::vector<FetchedItem>& items,
                                             RelayCursors& cursors, const std::string& mailboxID);

}  // namespace quorvane
