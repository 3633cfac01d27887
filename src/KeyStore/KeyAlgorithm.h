#pragma once

#include <string_view>

#include "Base/JSONReader.h"
#include "SSHWire/SSHKeyType.h"

namespace quorvane {

// The algorithms of the user's keys. The raw values are the SSH key type names.
enum class KeyAlgorithm { ecdsaP256, ecdsaP384, ed25519, rsa };

// "ecdsa-sha2-nistp256", "ecdsa-sha2-nistp384", "ssh-ed25519" or "ssh-rsa".
std::string_view rawValue(KeyAlgorithm algorithm);
SSHKeyType sshKeyType(KeyAlgorithm algorithm);

// JSON form: the raw value. Decoding any other string is dataCorrupted.
JSON toJSON(KeyAlgorithm algorithm);
KeyAlgorithm decodeKeyAlgorithm(const JSONReader& reader);

}  // namespace quorvane
