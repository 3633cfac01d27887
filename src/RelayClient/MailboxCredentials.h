#pragma once

#include <string>

#include "Base/JSONReader.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// What the owner of a relay mailbox keeps. Stored as {"id", "secret", "sendToken"}.
struct MailboxCredentials {
  std::string id;         // the mailbox's identifier, a path component of its URLs
  SecureBytes secret;     // the owner's bearer credential: read, delete, manage send tokens
  SecureBytes sendToken;  // a send token of the owner's own, handed to peers

  friend bool operator==(const MailboxCredentials&, const MailboxCredentials&) = default;
};

// What a peer keeps to post into someone else's mailbox. Stored as {"id", "sendToken"}.
struct MailboxAddress {
  std::string id;
  SecureBytes sendToken;

  friend bool operator==(const MailboxAddress&, const MailboxAddress&) = default;
};

// The address a peer needs to post into the owner's mailbox.
MailboxAddress addressOf(const MailboxCredentials& credentials);

// The JSON forms above. Decoding throws DecodingError for a missing key or a value that is not a
// string; extra keys are ignored.
JSON toJSON(const MailboxCredentials& credentials);
JSON toJSON(const MailboxAddress& address);
MailboxCredentials decodeMailboxCredentials(const JSONReader& reader);
MailboxAddress decodeMailboxAddress(const JSONReader& reader);

// A JSON string's text in wiping storage; the string inside the JSON value is wiped too.
// REQUIRES: `value` is a string.
SecureBytes takeSecretString(JSON& value);

}  // namespace quorvane
