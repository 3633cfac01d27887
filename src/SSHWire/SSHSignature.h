#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/Bytes.h"
#include "SSHWire/SSHKeyType.h"
#include "SSHWire/SignFlags.h"

namespace quorvane {

// Builders of SSH signature blobs (string algorithm name, string signature) from the raw output of
// a signing back end (RFC 5656 section 3.1.2, RFC 8709 section 6, RFC 8332 section 3).
struct SSHSignature {
  SSHSignature() = delete;

  // `raw` is r || s, both halves of the curve's size (32, 48 or 66 bytes); the blob holds
  // string mpint(r), string mpint(s) inside its signature string.
  // REQUIRES: `keyType` is an ECDSA type and raw has twice its curve's size.
  static Bytes ecdsa(SSHKeyType keyType, ByteView raw);

  // REQUIRES: signature is 64 bytes.
  static Bytes ed25519(ByteView signature);

  // `algorithm` is "rsa-sha2-256" or "rsa-sha2-512"; the signature is as long as the modulus.
  static Bytes rsa(std::string_view algorithm, ByteView signature);
};

// The algorithm name that a signature by a key of `keyType` carries. For RSA the flags choose:
// "rsa-sha2-256" when its bit is set (even with the 512 bit), else "rsa-sha2-512" when that bit is
// set, else nothing, because SHA-1 "ssh-rsa" signatures are never made. Other types ignore the
// flags and use their key type name.
std::optional<std::string> signatureAlgorithm(SSHKeyType keyType, SignFlags flags);

}  // namespace quorvane
