#pragma once

#include "Base/Bytes.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {

// Whether `signatureBlob` (string algorithm, string signature) is a valid signature over `data`
// by `key`. Recognised algorithms: "rsa-sha2-256", "rsa-sha2-512", "ecdsa-sha2-nistp256/384/521"
// and "ssh-ed25519". The algorithm must fit the key's type; SHA-1 "ssh-rsa" signatures, unknown
// algorithms, malformed blobs and keys of unknown types never verify. Never throws for bad input.
bool verify(ByteView signatureBlob, ByteView data, const SSHPublicKey& key);

}  // namespace quorvane
