#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace quorvane {

// The key types the agent knows, with their SSH names.
enum class SSHKeyType { ed25519, ecdsaP256, ecdsaP384, ecdsaP521, rsa, mldsa44Ed25519 };

inline constexpr std::array<SSHKeyType, 6> kAllSSHKeyTypes = {
    SSHKeyType::ed25519,   SSHKeyType::ecdsaP256, SSHKeyType::ecdsaP384,
    SSHKeyType::ecdsaP521, SSHKeyType::rsa,       SSHKeyType::mldsa44Ed25519};

// The key type name written in blobs, e.g. "ecdsa-sha2-nistp256".
std::string_view keyTypeName(SSHKeyType type);

// The curve identifier of an ECDSA type ("nistp256", "nistp384", "nistp521"); nothing otherwise.
std::optional<std::string_view> curveIdentifier(SSHKeyType type);

// The size in bytes of a coordinate or scalar of an ECDSA type's curve (32, 48, 66); 0 otherwise.
size_t curveFieldLength(SSHKeyType type);

// The type whose key type name is `name`; nothing for names the agent does not know.
std::optional<SSHKeyType> keyTypeNamed(std::string_view name);

}  // namespace quorvane
