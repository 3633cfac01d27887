#include "RelayClient/RelayAnswers.h"

#include <algorithm>
#include <optional>

#include "Base/Base64.h"
#include "Base/JSONReader.h"
#include "RelayClient/RelayError.h"

namespace quorvane {
namespace {

JSON parseObject(std::string_view body) {
  try {
    JSON value = parseJSON(body);
    if (!value.is_object()) throw RelayError::malformed();
    return value;
  } catch (const DecodingError&) {
    throw RelayError::malformed();
  }
}

// The non-empty string at `key`, taken out of `object` into wiping storage.
SecureBytes takeSecret(JSON& object, const char* key) {
  auto found = object.find(key);
  if (found == object.end() || !found->is_string() || found->get_ref<std::string&>().empty())
    throw RelayError::malformed();
  return takeSecretString(*found);
}

}  // namespace

MailboxCredentials parseMailboxCreation(std::string_view body) {
  JSON object = parseObject(body);
  auto id = object.find("id");
  if (id == object.end() || !id->is_string() || id->get_ref<std::string&>().empty())
    throw RelayError::malformed();
  MailboxCredentials credentials;
  credentials.id = id->get<std::string>();
  credentials.secret = takeSecret(object, "secret");
  credentials.sendToken = takeSecret(object, "send_token");
  return credentials;
}

SecureBytes parseSendTokenCreation(std::string_view body) {
  JSON object = parseObject(body);
  return takeSecret(object, "send_token");
}

std::vector<FetchedItem> parseFetchAnswer(std::string_view body) {
  const JSON object = parseObject(body);
  auto messages = object.find("messages");
  if (messages == object.end() || !messages->is_array()) throw RelayError::malformed();
  std::vector<FetchedItem> items;
  items.reserve(messages->size());
  for (const JSON& item : *messages) {
    if (!item.is_object()) throw RelayError::malformed();
    auto seq = item.find("seq");
    auto data = item.find("data");
    // Non-negative integers read as unsigned; negative ones and fractions are no seq.
    if (seq == item.end() || !seq->is_number_unsigned() || data == item.end() || !data->is_string())
      throw RelayError::malformed();
    items.push_back({seq->get<uint64_t>(), data->get<std::string>()});
  }
  return items;
}

std::vector<RelayMessage> acceptFetchedItems(const std::vector<FetchedItem>& items,
                                             RelayCursors& cursors, const std::string& mailboxID) {
  if (!items.empty()) {
    auto highest = std::ranges::max_element(
        items, [](const FetchedItem& a, const FetchedItem& b) { return a.seq < b.seq; });
    cursors.raise(mailboxID, highest->seq);
  }
  std::vector<RelayMessage> messages;
  for (const FetchedItem& item : items) {
    std::optional<Bytes> bytes = base64Decode(item.data);
    if (!bytes || bytes->empty()) continue;
    if (std::optional<Envelope> envelope = Envelope::decode(*bytes))
      messages.push_back({item.seq, std::move(*envelope)});
  }
  return messages;
}

}  // namespace quorvane
