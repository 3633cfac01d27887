#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::relay {

// Credentials of the relay: mailbox secrets and send tokens are 256-bit random values written as
// unpadded base64url text (43 characters, safe in a header). The relay keeps only their SHA-256
// hashes; a presented credential is hashed and compared in constant time. A plain hash suffices
// because the tokens are full-entropy random values: nobody can guess one from its hash.

// A fresh credential's text, from OpenSSL's CSPRNG.
SecureBytes newCredential();

// A fresh mailbox id: 128 random bits, unpadded base64url (22 characters).
std::string newMailboxId();

// The stored form of a credential: SHA-256 of its text (32 bytes).
Bytes credentialHash(const SecureBytes& credential);

// Whether two credential hashes are equal, in time that does not depend on where they differ.
bool sameCredentialHash(ByteView a, ByteView b);

// The credential of an "Authorization" header value "Bearer TOKEN" (the scheme in any case);
// nothing for a missing scheme, an empty or overlong token, or characters outside visible ASCII.
std::optional<SecureBytes> bearerCredential(std::string_view headerValue);

// Whether `text` can be a mailbox id: 1 to kMaxMailboxIdLength characters of A-Z a-z 0-9 - _.
bool isMailboxId(std::string_view text);

}  // namespace quorvane::relay
