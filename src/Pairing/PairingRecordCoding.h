#pragma once

// Field codecs shared by the JSON forms of the pairing records; for use inside Pairing.

#include <optional>
#include <string_view>

#include "Base/Bytes.h"
#include "Base/JSONReader.h"
#include "Base/SecureBytes.h"

namespace quorvane::pairingrecord {

// Sets `key` in `json` only when `value` is present: bytes as standard base64, a secret as text.
void putOptional(JSON& json, std::string_view key, const std::optional<Bytes>& value);
void putOptional(JSON& json, std::string_view key, const std::optional<SecureBytes>& value);

std::optional<Bytes> optionalBase64(const JSONReader& reader, std::string_view key);
std::optional<SecureBytes> optionalSecret(const JSONReader& reader, std::string_view key);

}  // namespace quorvane::pairingrecord
