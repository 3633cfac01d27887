#pragma once

#include <optional>
#include <string>
#include <variant>

#include "Base/Bytes.h"
#include "SSHWire/SSHKeyType.h"

namespace quorvane {

// An SSH public key blob and what it holds. The blob is a key's identity everywhere: two keys are
// the same key exactly when their blobs are byte-equal.
//
// Blob layouts (RFC 4253 section 6.6, RFC 5656 section 3.1, RFC 8709 section 4):
//   "ssh-ed25519"          string name, string key (32 bytes)
//   "ecdsa-sha2-nistpNNN"  string name, string curve identifier, string Q (SEC1 point)
//   "ssh-rsa"              string name, string e (mpint), string n (mpint)
//   anything else          string name, then bytes that are kept uninterpreted
struct SSHPublicKey {
  struct Ed25519 {
    Bytes key;  // 32 bytes
    friend bool operator==(const Ed25519&, const Ed25519&) = default;
  };
  struct ECDSA {
    std::string curve;
    Bytes q;  // the point as it stood in the blob
    friend bool operator==(const ECDSA&, const ECDSA&) = default;
  };
  struct RSA {
    Bytes e;  // the bytes of the mpint strings
    Bytes n;
    friend bool operator==(const RSA&, const RSA&) = default;
  };
  struct Other {
    Bytes rest;  // the blob after the type name
    friend bool operator==(const Other&, const Other&) = default;
  };
  using Material = std::variant<Ed25519, ECDSA, RSA, Other>;

  std::string type;  // the key type name read from the blob; unknown names are kept
  Material material;
  Bytes blob;  // the exact bytes parsed or built

  // Parses a blob. Throws WireError: invalid("ed25519 length") for a key that is not 32 bytes,
  // invalid("curve mismatch") for an ECDSA curve that is not the type's, `trailingBytes` after a
  // known type's fields, and the reader's errors. Unknown types are not errors: they are Other.
  static SSHPublicKey parse(ByteView blob);

  // Builders from key material; each returns the parsed form of the blob it builds.
  // REQUIRES: raw is 32 bytes.
  static SSHPublicKey ed25519(ByteView raw);
  // REQUIRES: `type` is an ECDSA type and x963 is an uncompressed point (04 || X || Y) of its
  // curve.
  static SSHPublicKey ecdsa(SSHKeyType type, ByteView x963);
  // e and n are non-negative big-endian numbers; they are written as mpints.
  static SSHPublicKey rsa(ByteView e, ByteView n);

  // The known type of this key, or nothing for an unknown type name.
  std::optional<SSHKeyType> keyType() const { return keyTypeNamed(type); }

  // "SHA256:" and the unpadded base64 of the blob's SHA-256.
  std::string fingerprint() const;

  friend bool operator==(const SSHPublicKey&, const SSHPublicKey&) = default;
};

// The fingerprint of a bare blob, as SSHPublicKey::fingerprint.
std::string fingerprint(ByteView blob);

}  // namespace quorvane
